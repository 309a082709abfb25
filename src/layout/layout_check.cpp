#include "qk/layout_check.h"

#include <algorithm>

#include "automation/conversions.h"
#include "frame/modUtility.h"
#include "layout/clsConvertion.h"
#include "layout/layout_format.h"
#include "layout/layout_values.h"
#include "layout/layout_walk.h"
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
  // Findings in the objects' order, whatever the kind: the walk goes kind by kind.
  std::vector<std::pair<int32_t, std::string>> found;
  // Every kind numbers its field 0; only texts carry a data type. The values are read as the
  // encoders read them (an object without the property repeats the previous object's).
  using R = fmt::PropertyRead;
  static constexpr R kFieldOnly[] = {{fmt::text::kField, fmt::Read::Text}};
  static constexpr R kTextReads[] = {{fmt::text::kField, fmt::Read::Text},
                                     {fmt::text::kDataType, fmt::Read::Text}};
  auto look = [&](int kind, const char* name) {
    return [&, kind, name](const layout::ObjectValues& v, automation::Recordset& object) {
      int32_t number = object.Fields("TD_OBJ").to_int32();
      auto say = [&](const std::string& s) { found.emplace_back(number, s); };
      const std::string& field = v.t(fmt::text::kField);
      std::string where =
          "object " + std::to_string(number) + " (" + name + ", field " + field + ")";
      if (layout::left_out_of_3000(field))
        say(where + ": field number over 50, left out of the 3000 series");
      if (kind != fmt::kText) return;
      const std::string& data_type = v.t(fmt::text::kDataType);
      if (fmt::sent_as_stored(automation::leading_number(data_type))) return;
      if (data_type.find_first_of("'\"") != std::string::npos) {
        say(where + ": data type " + data_type +
            " holds a quote; the scale's mapping lookup cannot find such a value (it is pasted "
            "into a query), so what is sent would not be its mapping");
        return;
      }
      auto mapped = mapping.lookup("O3", "O5", data_type);
      if (!mapped)
        say(where + ": data type " + data_type +
            " has no mapping, sent unchanged to the 5000 series");
      else if (automation::leading_number(*mapped) < 0)
        say(where + ": unknown data type " + data_type + " (sent as 27 with field value 999)");
    };
  };
  layout::ObjectValues logos, barcodes, texts;
  layout::walk(*layouts, fmt::kLogo, kFieldOnly, logos, look(fmt::kLogo, "logo"));
  layout::walk(*layouts, fmt::kBarcode, kFieldOnly, barcodes, look(fmt::kBarcode, "barcode"));
  layout::walk(*layouts, fmt::kText, kTextReads, texts, look(fmt::kText, "text"));
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [number, finding] : found) check.findings.push_back(std::move(finding));
  // What the picture of the layout shows as wrong (outside the ticket, a missing picture, two
  // objects at one place) is a finding too: the check and the picture never disagree.
  LayoutPreview drawn =
      preview_layout(dept, layout, "5000", path_in(installation_folder(), "images"));
  check.findings.insert(check.findings.end(), drawn.problems.begin(), drawn.problems.end());
  return check;
}

}  // namespace qk
