// layout: the arrays of a layout for one series, or --check to list what would not travel well.
#include "automation/recordset.h"
#include "commands.h"
#include "db_access/clsDbAccess.h"
#include "frame/encoding.h"
#include "frame/modUtility.h"
#include "layout/clsConvertion.h"
#include "layout/layout_format.h"
#include "qk/clsLayout.h"
#include "session.h"

namespace qkp {

namespace {

struct LayoutOptions {
  int32_t dept = 1, layout = 1;
  std::string family = "3000";
  bool check = false;
};

// Lists unknown data types (mapped to a negative value), values with no mapping (sent as they
// are) and field numbers over 50 (left out of the 3000 series). Returns the number of findings.
int check_layout(const LayoutOptions& o) {
  namespace fmt = qk::layout_format;
  qk::companions::clsDbAccess db;
  db.Initialize(qk::automation::Variant("Archivi.mdb"));
  auto layouts = db.p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(o.dept, o.layout);
  if (layouts->Eof()) {
    fail("layout " + std::to_string(o.layout) + " of department " + std::to_string(o.dept) +
         " does not exist");
    return 1;
  }
  qk::clsConvertion mapping;
  int findings = 0;
  auto say = [&](const std::string& s) {
    ++findings;
    std::printf("%s\n", qk::cp1252_to_utf8(s).c_str());
  };
  auto objects = layouts->Fields("object").as<qk::automation::Recordset>();
  static const char* kinds[] = {"", "logo", "barcode", "text", "ticket"};
  for (objects->MoveFirst(); !objects->Eof(); objects->MoveNext()) {
    int type = objects->Fields("OBJ_TYPE").to_int32();
    std::string field, data_type;
    auto props = objects->Fields("Property").as<qk::automation::Recordset>();
    for (props->MoveFirst(); !props->Eof(); props->MoveNext()) {
      int id = props->Fields("Id").to_int32();
      if (id == 0) field = props->Fields("value").to_text();
      if (id == 4) data_type = props->Fields("value").to_text();
    }
    std::string where = "object " + objects->Fields("TD_OBJ").to_string() + " (" +
                        kinds[type >= 1 && type <= 4 ? type : 0] + ", field " + field + ")";
    if (type != fmt::kTicket && qk::modUtility::p_lngNumericValue(field) > fmt::kMaxFieldNumber3000)
      say(where + ": field number over 50, left out of the 3000 series");
    if (type != fmt::kText) continue;
    double stored = qk::automation::leading_number(data_type);
    if (stored == 36 || stored == 37 || stored == 38) continue;
    if (data_type.find_first_of("'\"") != std::string::npos) {
      say(where + ": data type " + data_type +
          " holds a quote; the scale's mapping lookup cannot find such a value (it is pasted "
          "into a query), so what is sent would not be its mapping");
      continue;
    }
    auto mapped = mapping.lookup("O3", "O5", data_type);
    if (!mapped)
      say(where + ": data type " + data_type +
          " has no mapping, sent unchanged to the 5000 series");
    else if (qk::automation::leading_number(*mapped) < 0)
      say(where + ": unknown data type " + data_type + " (sent as 27 with field value 999)");
  }
  return findings;
}

}  // namespace

void add_layout_command(CLI::App& app, Options& g) {
  auto o = std::make_shared<LayoutOptions>();
  auto* cmd = app.add_subcommand("layout", "A ticket layout for the 3000 or 5000 series");
  cmd->add_option("--dept", o->dept, "department (counter)")->required();
  cmd->add_option("--layout", o->layout, "layout number")->required();
  cmd->add_option("--family", o->family, "3000 or 5000")->check(CLI::IsMember({"3000", "5000"}));
  cmd->add_flag("--check", o->check,
                "list unknown data types, unmapped values and field numbers over 50");
  cmd->callback([&g, o] {
    if (o->check) {
      int n = check_layout(*o);
      if (n == 0)
        std::fprintf(stderr, "qkp: layout %d is clean\n", o->layout);
      else
        set_exit_status(kExitFailed);
      return;
    }
    qk::clsLayout layout;
    layout.p_lngBnc(o->dept);
    layout.p_lngTicketId(o->layout);
    if (!layout.p_booRetrieveData()) {
      fail("layout " + std::to_string(o->layout) + " of department " + std::to_string(o->dept) +
           " does not exist or could not be built");
      return;
    }
    auto a = layout.p_strProtocol(o->family == "3000" ? 2 : 1);
    print(g, a.items());
  });
}

}  // namespace qkp
