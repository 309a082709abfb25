#include "qk/sync/journal.h"

#include <unistd.h>

#include <atomic>
#include <ctime>

#include "qk/sync/network.h"

namespace qk::sync {

using automation::Variant;

std::string utc_now() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

Run begin_run(ArchiveTools& a, std::string by, std::string store, int32_t line,
              std::string transport) {
  Run r;
  r.start = utc_now();
  char host[128] = "?";
  ::gethostname(host, sizeof host - 1);
  // A process may start several runs within a second (a host that syncs every line).
  static std::atomic<long> runs_here{0};
  r.id =
      r.start + " " + host + " " + std::to_string(::getpid()) + " " + std::to_string(++runs_here);
  r.by = std::move(by);
  r.store = std::move(store);
  r.line = line;
  r.transport = std::move(transport);
  ArchiveWrite write(a);
  a.insert_row(*archive::find_table("QK_RUNS"),
               {"RUN_ID", "RUN_START", "RUN_BY", "RUN_STORE", "RUN_LINE", "RUN_TRANSPORT"},
               {r.id, r.start, r.by, r.store, r.line, r.transport});
  write.commit();
  return r;
}

void end_run(ArchiveTools& a, Run& r) {
  r.end = utc_now();
  ArchiveWrite write(a);
  a.update_rows(*archive::find_table("QK_RUNS"), {{"RUN_ID", r.id}},
                {"RUN_END", "RUN_RECORDS", "RUN_BYTES", "RUN_RETRIES", "RUN_OUTCOME", "RUN_ERROR"},
                {r.end, r.records, r.bytes, r.retries, r.outcome, r.error});
  write.commit();
}

void write_journal(ArchiveTools& a, const Run& run, const std::string& time,
                   const std::vector<JournalEntry>& entries) {
  const archive::Table& t = *archive::find_table("QK_JOURNAL");
  static const std::vector<std::string> columns = archive::written_columns(t);
  // One insert for the batch: on a server that is one round trip, not one per record.
  std::vector<std::vector<Variant>> rows;
  rows.reserve(entries.size());
  for (const auto& e : entries)
    rows.push_back(
        {time, run.id, e.store, e.dept, e.line, e.scale, e.family, e.kind, e.id, e.length, e.hash});
  a.insert_rows(t, columns, rows);
}

}  // namespace qk::sync
