// The sources of the sync: for each kind of record, which ids a department's line is missing, how
// one record is built in the line's family, and (for the kinds with flags) which archive rows it
// is built from, its flags and the class's own reset. The sync loop, the pending list and the
// marking command all follow this one table.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "qk/archive_tools.h"
#include "qk/export.h"
#include "qk/sync/families.h"
#include "qk/sync/network.h"

namespace qk {
namespace QK_API sync {

// One department's line, as every source of it sees it.
struct LineContext {
  ScaleLine where;
  const Family* forms = nullptr;
  automation::Variant configured;  // the configured-lines array of the whole network
  ArchiveTools* archive = nullptr;
  std::string images_folder;  // "<installation>/images/": the pictures handed to the component
  // Says something about a record that is sent anyway (a missing picture file, …).
  std::function<void(const std::string&)> warn = [](const std::string&) {};
};

// Raised by a source's build for a record it will not hand to the component, with the one
// message that says why (naming the record and what to do); the sync adds only "not sent".
class RecordRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class RecordSource {
 public:
  virtual ~RecordSource() = default;
  // The ids of the records: only those pending on `pending_line`, or every one when it is 0.
  // Rows that cannot be read are left out and described in *problems.
  virtual std::vector<int32_t> ids(int32_t pending_line, std::vector<std::string>* problems) = 0;
  // "key block 2", "lot 12", … for messages and listings.
  virtual std::string label(int32_t id) const = 0;
  // The record's strings as the component builds them (empty when it could not).
  virtual std::vector<std::string> build(int32_t id) = 0;
  // Kinds with flags: the rows the record is built from, its flag string, and the class's reset
  // of the served line.
  virtual std::optional<GroupRef> group(int32_t) const { return std::nullopt; }
  virtual std::string flags(int32_t) { return {}; }
  virtual void reset(int32_t) {}
};

// The archive rows a record without flags is built from: compared with its last delivery to
// tell whether it is pending (content_pending.h).
struct ContentRows {
  const char* table = nullptr;   // none: never pending by content (the date goes with the rest)
  const char* record = nullptr;  // the column numbering the records; none: the table read whole
  bool by_position = false;      // records are numbered 1, 2, … in the order of that column
  const char* also = nullptr;    // a table of the department every record reads too
};

struct SourceEntry {
  Kind kind;
  bool flagged;  // the records carry transmission flags; the others are pending by content
  // A source for the line in the family's form of the kind.
  std::unique_ptr<RecordSource> (*open)(const LineContext& line, Form form);
  ContentRows rows = {};
};

// One department's line for records taken one at a time, outside a sync (the tool's single-record
// commands): the network's configured lines, the archive, the line and scale given. Problems
// reading the network go to *problems.
LineContext single_line(ArchiveTools& a, int32_t dept, int32_t line, int32_t scale,
                        std::vector<std::string>* problems);

// Every kind, in the order a sync sends them.
const std::vector<SourceEntry>& sources();
const SourceEntry& source_of(Kind k);

// The archive group a flag-carrying kind's records belong to (keys: by the family's form).
std::optional<RecordGroup> group_of(Kind k, Form form);

}  // namespace sync
}  // namespace qk
