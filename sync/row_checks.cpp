#include "qk/sync/row_checks.h"

namespace qk::sync {

std::string row_name(const archive::Table& t, const automation::Recordset& row) {
  std::string s;
  auto id = archive::identity(t);
  for (auto c : id) {
    std::string value;
    try {
      value = row.Fields(c).to_text();
    } catch (const std::exception&) {
      value = "?";
    }
    s += (s.empty() ? "" : ", ") + std::string(c) + " " + value;
  }
  return std::string(t.name) + " (" + s + ")";
}

std::vector<std::string> row_problems(const archive::Table& t, automation::Recordset& rows) {
  std::vector<std::string> out;
  for (rows.MoveFirst(); !rows.Eof(); rows.MoveNext())
    for (const auto& c : t.columns) {
      std::string p = value_problem(c, rows.Fields(c.name));
      if (!p.empty()) out.push_back(row_name(t, rows) + ": " + std::string(c.name) + " " + p);
    }
  return out;
}

}  // namespace qk::sync
