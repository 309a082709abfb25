#include "qk/sync/network.h"

#include <algorithm>
#include <set>

#include "qk/error.h"
#include "qk/host.h"
#include "qk/sync/families.h"
#include "qk/sync/row_checks.h"

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
    host::event_log(host::kEventWarning, "a rollback failed (" + std::string(e.what()) +
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
                     rs->Fields("SL_SCALE").to_int32(), rs->Fields("SL_STORE").to_text(),
                     rs->Fields("SL_ADDRESS").to_text()});
  }
  return lines;
}

StoreChoice installation_store() {
  std::string s = host::setting("Appl", "Store");
  if (s.empty()) return std::nullopt;
  return s;
}

std::string store_label(const StoreChoice& s) {
  return s ? "store " + (s->empty() ? std::string("\"\"") : *s) : "every store";
}

StoreLimit::StoreLimit(ArchiveTools& a, const StoreChoice& store)
    : stores_(dynamic_cast<ArchiveStores*>(&a)) {
  if (!stores_) {
    if (store && !store->empty())
      automation::raise(automation::kMemberNotSupported,
                        "the database component \"" + std::string(kDbAccessId) +
                            "\" does not keep stores apart (qk/archive_stores.h); " +
                            store_label(store) + " cannot be served by it");
    return;
  }
  stores_->limit_to_store(store);
}

StoreLimit::~StoreLimit() {
  if (!stores_) return;
  try {
    stores_->limit_to_store(std::nullopt);
  } catch (const std::exception&) {
    // A lost connection: the next one starts without a limit.
  }
}

std::vector<std::unique_ptr<ArchiveTools::Lock>> lock_line_of(ArchiveTools& a,
                                                              const StoreChoice& store,
                                                              const std::vector<ScaleLine>& network,
                                                              int32_t line, bool wait,
                                                              std::string* holder) {
  auto* stores = dynamic_cast<ArchiveStores*>(&a);
  // Every store's lock in one order (by name), so that two syncs of every store never wait for
  // each other in a circle; a store's own sync takes only its lock.
  std::set<std::string> names;
  if (store)
    names.insert(*store);
  else
    for (const auto& l : network)
      if (l.line == line || line <= 0) names.insert(l.store);
  names.insert(store.value_or(""));
  std::vector<std::unique_ptr<ArchiveTools::Lock>> held;
  for (const auto& name : names) {
    auto lock = name.empty() || !stores ? a.lock_line(line, wait, holder)
                                        : stores->lock_store_line(name, line, wait, holder);
    if (!lock) return {};
    held.push_back(std::move(lock));
  }
  return held;
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
