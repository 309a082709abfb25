// The network description (table SCALE_LINES): which lines exist per department, the family and
// scale number of each. It is the one source of the configured-lines array.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qk/archive_stores.h"
#include "qk/archive_tools.h"
#include "qk/companions.h"
#include "qk/export.h"
#include "qk/variant.h"

namespace qk {
namespace QK_API sync {

// The database companion's tools, not opened on any archive yet (for new archives).
std::shared_ptr<ArchiveTools> new_archive_tools();
// The database companion's tools opened on "Archivi.mdb" as every class opens it, or on the
// archive at `location` (a server URI or the absolute path of a .sqlite file).
std::shared_ptr<ArchiveTools> open_archive_tools(const std::string& location = kArchiveName);

// A write transaction of the tools that rolls back unless committed. A rollback that fails (the
// server went away: it rolls back by itself) is written to the event log, never raised from the
// destructor.
class ArchiveWrite {
 public:
  explicit ArchiveWrite(ArchiveTools& a) : a_(a) { a_.begin_write(); }
  ~ArchiveWrite();
  void commit() {
    a_.commit();
    done_ = true;
  }
  ArchiveWrite(const ArchiveWrite&) = delete;
  ArchiveWrite& operator=(const ArchiveWrite&) = delete;

 private:
  ArchiveTools& a_;
  bool done_ = false;
};

struct ScaleLine {
  int32_t dept;
  int32_t line;
  std::string family;
  int32_t scale;
  std::string store;  // "" in an archive of one store
  std::string address = {};  // where its records go (qk/line_address.h); "" when not said
};

// The lines a command acts on: one store's, or without a value every store's (the chain
// office's view, and an installation that names no store).
using StoreChoice = std::optional<std::string>;
// The installation's own choice: the setting Store (empty: every store).
StoreChoice installation_store();
inline bool in_store(const ScaleLine& l, const StoreChoice& s) {
  return !s || l.store == *s;
}
// "store A" or "every store", for messages.
std::string store_label(const StoreChoice& s);

// Limits the tools' flag writes to the store's lines while it lives (qk/archive_stores.h), so
// that no statement, the component's own included, changes another store's line. A companion
// that does not keep stores apart serves no named store: raises error 438.
class StoreLimit {
 public:
  StoreLimit(ArchiveTools& a, const StoreChoice& store);
  ~StoreLimit();
  StoreLimit(const StoreLimit&) = delete;
  StoreLimit& operator=(const StoreLimit&) = delete;

 private:
  ArchiveStores* stores_ = nullptr;
};

// The sync locks of line `line` for the store (its own), or for every store of the network
// (the chain office excludes each store's sync of the line). Empty when one is held elsewhere
// and `wait` is false; *holder then says who.
std::vector<std::unique_ptr<ArchiveTools::Lock>> lock_line_of(ArchiveTools& a,
                                                              const StoreChoice& store,
                                                              const std::vector<ScaleLine>& network,
                                                              int32_t line, bool wait,
                                                              std::string* holder);

// Every line of the archive, by department and line. A row the component could not read is left
// out and described in *problems.
std::vector<ScaleLine> read_network(ArchiveTools& a, std::vector<std::string>* problems);

// The configured-lines array for the classes: (department 0..highest, line index 0..7), 1 where
// the line exists.
automation::Variant configured_lines(const std::vector<ScaleLine>& network);

// The flag string of a table's width with "1" at the given lines (1-based; lines beyond the
// width are left out).
std::string line_mask(int width, const std::vector<int32_t>& lines);

}  // namespace sync
}  // namespace qk
