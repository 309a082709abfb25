// The delivery journal in the archive: a row per sync run (QK_RUNS) and a row per record a line
// confirmed (QK_JOURNAL), written in the same transaction as that record's reset.
#pragma once

#include <string>
#include <vector>

#include "qk/archive_tools.h"
#include "qk/export.h"

namespace qk {
namespace QK_API sync {

// Now in UTC, "2026-11-20T14:02:05Z": text that sorts as time does.
std::string utc_now();

struct Run {
  // The start time, host, process and the process's count of runs: unique without asking the
  // archive.
  std::string id;
  std::string start, end;
  std::string by, store, transport;
  int32_t line = 0;
  long records = 0;
  long long bytes = 0;
  long retries = 0;
  std::string outcome = "running", error;
};

// A new run, started now, and its row (own write transaction).
Run begin_run(ArchiveTools& a, std::string by, std::string store, int32_t line,
              std::string transport);
// The run's end: counts, outcome and error (own write transaction).
void end_run(ArchiveTools& a, Run& run);

struct JournalEntry {
  std::string store;  // the line's
  int32_t dept, line, scale;
  std::string family, kind;
  int32_t id;
  long long length;
  std::string hash;
};
// The rows of confirmed records, inside the caller's write transaction.
void write_journal(ArchiveTools& a, const Run& run, const std::string& time,
                   const std::vector<JournalEntry>& entries);

}  // namespace sync
}  // namespace qk
