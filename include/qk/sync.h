// The main job of a back office: send a scale line what it is missing, and reset each record's
// flag once it was delivered. Also the pending list and marking, which follow the same sources.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qk/export.h"
#include "qk/sync/delivery.h"
#include "qk/sync/record_sources.h"

namespace qk {
namespace QK_API sync {

struct SyncScope {
  int32_t line = 0;   // the served line, 1 to 8
  int32_t dept = -1;  // -1: every department where the line is configured
  bool full = false;  // everything the family takes, not only what is pending (flags or content)
  StoreChoice store;  // the store whose lines are served; none: every store's
  bool clock_only = false;  // only the date and time, to every line of the scope (a schedule's)
};

// The message context of what the sync (or a host) is doing on this thread, such as
// "department 1, line 2, layout 3"; the host's message callbacks prefix what the component says
// with it. A scope sets it and puts the previous one back.
const std::string& current_context();
class ContextScope {
 public:
  explicit ContextScope(std::string text);
  ~ContextScope();
  ContextScope(const ContextScope&) = delete;
  ContextScope& operator=(const ContextScope&) = delete;

 private:
  std::string previous_;
};

// Each department's line of the scope, with its family's forms; calls `each` for it, or
// `unknown` for a line of a family the sync does not know. Returns the lines visited.
using LineVisitor = std::function<void(const LineContext&)>;
int for_each_line(ArchiveTools& a, const SyncScope& scope, const LineVisitor& each,
                  const std::function<void(const ScaleLine&)>& unknown,
                  std::vector<std::string>* problems);

struct KindTally {
  long records = 0;       // delivered
  long long bytes = 0;    // delivered, without separators
  long failed = 0;        // could not be built (or built with a reported error): left pending
  long changed = 0;       // changed in the archive while being sent: left pending
  long reset_failed = 0;  // delivered, but the reset was refused: will be sent again
  long warned = 0;        // delivered as the component built it, with a notice of its own
};

struct SyncReport {
  enum Status { Done, Failed, Busy, NoLine } status = Done;
  std::map<Kind, KindTally> tally;
  std::string stopped;  // why delivery stopped, when it did
  std::string holder;   // Busy: who holds the line
  long retries = 0;     // resets tried again because another writer held the archive
  std::string run;      // the run's id in the journal
  double seconds = 0;
  long records() const;
  long long bytes() const;
};

struct SyncOptions {
  SyncScope scope;
  bool wait = false;  // wait for another sync of the line instead of stopping
  // Messages for the user (problems, records left pending); the caller prints them.
  std::function<void(const std::string&)> say = [](const std::string&) {};
  // Called after each delivered record with the running count.
  std::function<void(long)> progress = [](long) {};
  // The delivery journal (QK_RUNS, QK_JOURNAL): who ran the sync, over what transport.
  bool journal = true;
  std::string by, transport;
};

// Runs the sync. What was not delivered stays pending; a record delivered but not reset is sent
// again next time (at least once, never lost).
SyncReport run_sync(ArchiveTools& a, Transport& t, const SyncOptions& o);

struct PendingRecord {
  Kind kind;
  int32_t id;
  std::string label, flags;
  std::string reason;  // a record without flags: "never sent", "changed since …"
};
struct PendingLine {
  ScaleLine where;
  bool known_family = true;
  std::vector<PendingRecord> records;
};
// The records pending on the scope's line, per department (every line of the scope is listed,
// with no records when nothing is pending).
std::vector<PendingLine> list_pending(ArchiveTools& a, const SyncScope& scope,
                                      std::vector<std::string>* problems);

// The kinds a user may mark pending, in sending order: all but the date, which goes with
// anything pending.
std::vector<Kind> markable_kinds();

struct MarkRequest {
  std::vector<int32_t> lines;  // empty: every line configured in the department
  int32_t dept = -1;           // -1: every department
  std::vector<Kind> kinds;     // empty: every kind but the date
  std::optional<int32_t> id;   // one record (key, form, lot or message number)
  StoreChoice store;           // only this store's lines; none: every store's
};
struct MarkResult {
  long rows = 0;
  long records = 0;  // records without flags whose last delivery on a line was forgotten
  std::vector<std::string> skipped;  // departments where a requested line is not configured
};
// Marks records pending, as the back office's "send again" does: flags are set, and for the
// kinds without flags the last delivery to the line is forgotten. Only configured lines of the
// request's store are marked. An id with other than one kind raises std::invalid_argument.
MarkResult mark(ArchiveTools& a, const MarkRequest& r);

// A new or changed line: every flag-carrying record of the department that the line's family
// takes becomes pending on it (in the caller's write transaction). Returns the rows marked.
long mark_line_pending(ArchiveTools& a, int32_t dept, int32_t line, const std::string& family);
// The rows of the department whose flags hold the line pending.
long rows_pending_on(ArchiveTools& a, int32_t dept, int32_t line);

}  // namespace sync
}  // namespace qk
