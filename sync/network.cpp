#include "network.h"

#include <algorithm>

#include "families.h"
#include "qk/host.h"
#include "row_checks.h"

namespace qk::sync {

using automation::Variant;

std::shared_ptr<ArchiveTools> new_archive_tools() {
  auto tools = std::dynamic_pointer_cast<ArchiveTools>(automation::create_object(kDbAccessId));
  if (!tools)
    automation::raise(automation::kMemberNotSupported,
                      std::string("the database component \"") + kDbAccessId +
                          "\" does not offer the tools' members (qk/archive_tools.h)");
  return tools;
}

ArchiveWrite::~ArchiveWrite() {
  if (done_) return;
  try {
    a_.rollback();
  } catch (const std::exception& e) {
    host::event_log(host::kEventWarning,
                    "a rollback failed (" + std::string(e.what()) +
                        "); the archive's server ends the transaction itself");
  }
}

std::shared_ptr<ArchiveTools> open_archive_tools(const std::string& location) {
  auto tools = new_archive_tools();
  std::dynamic_pointer_cast<DbAccess>(automation::ObjectPtr(tools))->Initialize(Variant(location));
  return tools;
}

std::vector<ScaleLine> read_network(ArchiveTools& a, std::vector<std::string>* problems) {
  const archive::Table& t = *archive::find_table("SCALE_LINES");
  auto rs = a.select_rows(t, {});
  std::vector<ScaleLine> lines;
  for (; !rs->Eof(); rs->MoveNext()) {
    bool ok = true;
    for (const auto& c : t.columns) {
      std::string p = value_problem(c, rs->Fields(c.name));
      if (p.empty()) continue;
      ok = false;
      if (problems)
        problems->push_back(row_name(t, *rs) + ": " + std::string(c.name) + " " + p +
                            "; the line is left out");
    }
    if (!ok) continue;
    // A family is written one way wherever it is shown, whatever case the archive holds.
    std::string family = rs->Fields("SL_FAMILY").to_string();
    if (const Family* f = forms_of(family)) family = std::string(f->name);
    lines.push_back({rs->Fields("SL_BNC").to_int32(), rs->Fields("SL_LINE").to_int32(), family,
                     rs->Fields("SL_SCALE").to_int32()});
  }
  return lines;
}

Variant configured_lines(const std::vector<ScaleLine>& network) {
  long highest = 0;
  for (const auto& l : network) highest = std::max(highest, static_cast<long>(l.dept));
  auto a = std::make_shared<automation::VariantArray>(
      std::vector<std::pair<long, long>>{{0, highest}, {0, 7}});
  for (const auto& l : network)
    if (l.dept >= 0 && l.line >= 1 && l.line <= 8) a->at(l.dept, l.line - 1) = 1;
  return Variant(a);
}

std::string line_mask(int width, const std::vector<int32_t>& lines) {
  std::string mask(static_cast<std::size_t>(width), '0');
  for (int32_t l : lines)
    if (l >= 1 && l <= width) mask[static_cast<std::size_t>(l - 1)] = '1';
  return mask;
}

}  // namespace qk::sync
