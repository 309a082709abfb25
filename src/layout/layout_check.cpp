#include "qk/layout_check.h"

#include "automation/conversions.h"
#include "frame/modUtility.h"
#include "layout/clsConvertion.h"
#include "layout/layout_format.h"
#include "layout/layout_values.h"
#include "qk/host.h"
#include "qk/previews.h"
#include "qk/recordset.h"

namespace qk {

LayoutCheck check_layout(int32_t dept, int32_t layout) {
  namespace fmt = qk::layout_format;
  LayoutCheck check;
  auto db = automation::create_as<DbAccess>(kDbAccessId);
  db->Initialize(automation::Variant(kArchiveName));
  auto layouts = db->p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(dept, layout);
  if (layouts->Eof()) return check;
  check.exists = true;
  clsConvertion mapping;
  auto say = [&](const std::string& s) { check.findings.push_back(s); };
  auto objects = layouts->Fields("object").as<automation::Recordset>();
  static const char* kinds[] = {"", "logo", "barcode", "text", "ticket"};
  for (objects->MoveFirst(); !objects->Eof(); objects->MoveNext()) {
    int type = objects->Fields("OBJ_TYPE").to_int32();
    std::string field, data_type;
    auto props = objects->Fields("Property").as<automation::Recordset>();
    for (props->MoveFirst(); !props->Eof(); props->MoveNext()) {
      int id = props->Fields("Id").to_int32();
      // Every kind numbers its field 0; only texts carry a data type.
      if (id == fmt::text::kField) field = props->Fields("value").to_text();
      if (id == fmt::text::kDataType) data_type = props->Fields("value").to_text();
    }
    std::string where = "object " + objects->Fields("TD_OBJ").to_string() + " (" +
                        kinds[type >= 1 && type <= 4 ? type : 0] + ", field " + field + ")";
    if (type != fmt::kTicket && layout::left_out_of_3000(field))
      say(where + ": field number over 50, left out of the 3000 series");
    if (type != fmt::kText) continue;
    double stored = automation::leading_number(data_type);
    if (fmt::sent_as_stored(stored)) continue;
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
    else if (automation::leading_number(*mapped) < 0)
      say(where + ": unknown data type " + data_type + " (sent as 27 with field value 999)");
  }
  // What the picture of the layout shows as wrong (outside the ticket, a missing picture, two
  // objects at one place) is a finding too: the check and the picture never disagree.
  LayoutPreview drawn =
      preview_layout(dept, layout, "5000", path_in(installation_folder(), "images"));
  check.findings.insert(check.findings.end(), drawn.problems.begin(), drawn.problems.end());
  return check;
}

}  // namespace qk
