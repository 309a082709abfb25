#include "network.h"

#include "automation/variant.h"
#include "db_access/clsDbAccess.h"
#include "session.h"

namespace qkp {

std::vector<ScaleLine> read_network() {
  qk::companions::clsDbAccess db;
  db.Initialize(qk::automation::Variant("Archivi.mdb"));
  auto rs = db.archive().query(
      "select SL_BNC, SL_LINE, SL_FAMILY, SL_SCALE from SCALE_LINES order by SL_BNC, SL_LINE");
  std::vector<ScaleLine> lines;
  for (; !rs->Eof(); rs->MoveNext())
    lines.push_back({rs->Fields("SL_BNC").to_int32(), rs->Fields("SL_LINE").to_int32(),
                     rs->Fields("SL_FAMILY").to_string(), rs->Fields("SL_SCALE").to_int32()});
  return lines;
}

qk::automation::Variant configured_lines(const std::vector<ScaleLine>& network) {
  long highest = 0;
  for (const auto& l : network) highest = std::max(highest, l.dept);
  auto a = std::make_shared<qk::automation::VariantArray>(
      std::vector<std::pair<long, long>>{{0, highest}, {0, 7}});
  for (const auto& l : network)
    if (l.line >= 1 && l.line <= 8) a->at(l.dept, l.line - 1) = 1;
  return qk::automation::Variant(a);
}

void check_number(const std::string& option, const std::string& text) {
  std::size_t i = 0;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
  bool digits = i < text.size();
  for (; i < text.size(); ++i) digits = digits && text[i] >= '0' && text[i] <= '9';
  if (!digits)
    fail(option + " \"" + text + "\" is not a whole number (the archive reads it as " +
         std::to_string(static_cast<long>(qk::automation::leading_number(text))) + ")");
}

}  // namespace qkp
