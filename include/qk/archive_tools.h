// What the back-office tools (sync, pending, mark, import, export, init) need of the archive
// beyond the component's own members. The database companion registered as
// "QK_Db_Access.clsDbAccess" implements this interface too: the tools create it by name, call
// Initialize, and never see which database is behind it. docs/archive.md gives each member's
// meaning; qk/archive_schema.h the tables.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qk/archive_schema.h"
#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

// The rows one flag-carrying record of the sync is built from (and reset on).
enum class RecordGroup {
  KeyBlock,     // TASTIERA_PLU: keys id*15+1 .. id*15+15 of one scale (type "35" block id)
  Key,          // TASTIERA_PLU: every row of key id, all scales (5000 and 2000 forms)
  BarcodeForm,  // BARCODE: form id
  Lot,          // TRACEABILITY: every row of lot id
  Ad,           // ADVERTISING: message id
};

struct QK_API GroupRef {
  RecordGroup group;
  int32_t dept = 0;
  int32_t scale = 0;  // KeyBlock only
  int32_t id = 0;
};

// The table a group's rows live in.
inline const archive::Table& group_table(RecordGroup g) {
  switch (g) {
    case RecordGroup::KeyBlock:
    case RecordGroup::Key:
      return *archive::find_table("TASTIERA_PLU");
    case RecordGroup::BarcodeForm:
      return *archive::find_table("BARCODE");
    case RecordGroup::Lot:
      return *archive::find_table("TRACEABILITY");
    case RecordGroup::Ad:
      break;
  }
  return *archive::find_table("ADVERTISING");
}

// Keys per type "35" block (the wire format's own constant: src/builders/key_binding_format.h
// uses this one).
inline constexpr int32_t kKeysPerBlock = 15;
// The block of a key (keys 1..15 are block 0) and a block's first key.
inline constexpr int32_t key_block(int32_t key) {
  return static_cast<int32_t>((static_cast<int64_t>(key) - 1) / kKeysPerBlock);
}
inline constexpr int32_t first_key_of(int32_t block) {
  return block * kKeysPerBlock + 1;
}

// Column equalities that select rows ("SL_BNC" = 1 and "SL_LINE" = 2); names must be columns of
// the table.
using Where = std::vector<std::pair<std::string, automation::Variant>>;

// The row identities and versions of a group at one moment.
struct QK_API RowSnapshot {
  std::string table;
  std::vector<std::pair<int64_t, int64_t>> rows;  // (ROW_ID, ROW_VERSION), by ROW_ID
  bool operator==(const RowSnapshot&) const = default;
};

// What the sync needs of a record before it builds it: the snapshot of its group's rows, and
// whether one of them may hold a value its column does not allow or a text with no 8-bit form
// (then group_rows tells which, and what).
struct QK_API GroupState {
  RowSnapshot rows;
  bool suspect = false;
  bool pending = false;  // one of its rows is pending on the line asked for
};

class QK_API ArchiveTools : public virtual automation::Object {
 public:
  ArchiveTools() = default;
  QK_NOT_COPIED(ArchiveTools);
  // A held lock; released when destroyed.
  class Lock {
   public:
    virtual ~Lock() = default;
  };

  // Where the archive is (a file path or a connection without its password), for messages.
  virtual std::string location() const = 0;

  // Transactions on this thread's connection; the component's own calls made in between belong
  // to them. begin_read gives one consistent view until end_read. begin_write waits briefly for
  // other writers, then raises an error; rollback undoes everything since begin_write.
  virtual void begin_read() = 0;
  virtual void end_read() = 0;
  virtual void begin_write() = 0;
  virtual void commit() = 0;
  virtual void rollback() = 0;

  // The distinct ids of a group's records for the department (and scale, for key blocks), only
  // those pending on `line` unless it is 0, in increasing order. Rows whose id cannot be read as
  // a 32-bit whole number are left out and described in *problems (table, row, column).
  virtual std::vector<int32_t> record_ids(RecordGroup g, int32_t dept, int32_t scale, int32_t line,
                                          std::vector<std::string>* problems) = 0;

  // Every row of a group with every column of its table, plus ROW_ID (the row's identity, stable
  // for its life) and ROW_VERSION, by ROW_ID.
  virtual automation::RecordsetPtr group_rows(const GroupRef& ref) = 0;

  // The states of the records `first` to `last` of one scope: the group and department of
  // `scope` (and its scale, for key blocks; its id is not used). Records without rows are absent.
  // One read for many records, without their values: every row with a value its column's
  // description (qk/archive_schema.h) does not allow, or a text with no 8-bit form, is suspect
  // (a clean row may be too, where the database cannot tell cheaply).
  virtual std::map<int32_t, GroupState> group_states(const GroupRef& scope, int32_t first,
                                                     int32_t last, int32_t line) = 0;

  // While a guard is set, the flag updates of the component's resets on the guard's table (the
  // numeric members' updates and the 5000/2000 key statement run through
  // p_GENERIC_ExecuteQuery) write only the guard's rows, and only those whose version is still
  // the one recorded: rows changed or added since the snapshot stay as they are. Removing the
  // guard (nullptr) returns how many rows its writes left alone that way.
  virtual long guard_resets(const RowSnapshot* guard) = 0;

  // A batch's resets written together, within a write transaction. After hold_resets() the
  // guarded flag writes of the resets that follow are kept, and the component's reads of the
  // records named with expect_resets (as group_states takes them) come from one read;
  // write_held_resets() writes what was kept, in a few statements per table, and returns for
  // each guard set meanwhile, in order, the rows its kept writes left alone (guard_resets still
  // counts those written at once). A guarded write only clears flags, so writing the kept ones
  // together, after the reads, gives what writing each in its turn gives. false: this archive
  // writes each reset at once.
  virtual bool hold_resets() { return false; }
  virtual void expect_resets(const GroupRef& scope, int32_t first, int32_t last) {
    (void)scope, (void)first, (void)last;
  }
  virtual std::vector<long> write_held_resets() { return {}; }

  // Rows of a table whose columns equal `where` (every row when empty), ordered by the table's
  // identity columns and then by insertion. Text comes back in the component's 8-bit form.
  virtual automation::RecordsetPtr select_rows(const archive::Table& t, const Where& where) = 0;
  virtual void insert_row(const archive::Table& t, const std::vector<std::string>& columns,
                          const std::vector<automation::Variant>& values) = 0;
  // Many rows at once, as insert_row would write each (a copy, an import): in one go where the
  // database has a way (COPY on a server).
  virtual void insert_rows(const archive::Table& t, const std::vector<std::string>& columns,
                           const std::vector<std::vector<automation::Variant>>& rows) {
    for (const auto& r : rows) insert_row(t, columns, r);
  }
  // Rows written by the table's key (its key columns come first in `columns`): each replaces
  // the row of its key, or is added (a table without a key only adds). In one statement where
  // the database has a way.
  virtual void put_rows(const archive::Table& t, const std::vector<std::string>& columns,
                        const std::vector<std::vector<automation::Variant>>& rows) {
    std::size_t keys = t.key.size();
    if (keys == 0) return insert_rows(t, columns, rows);
    std::vector<std::string> rest(columns.begin() + static_cast<std::ptrdiff_t>(keys),
                                  columns.end());
    for (const auto& r : rows) {
      Where key;
      for (std::size_t i = 0; i < keys; ++i) key.emplace_back(columns[i], r[i]);
      if (update_rows(t, key, rest, {r.begin() + static_cast<std::ptrdiff_t>(keys), r.end()}) == 0)
        insert_row(t, columns, r);
    }
  }
  // Returns the number of rows changed.
  virtual long update_rows(const archive::Table& t, const Where& where,
                           const std::vector<std::string>& columns,
                           const std::vector<automation::Variant>& values) = 0;
  virtual long delete_rows(const archive::Table& t, const Where& where) = 0;

  // Marks lines pending on the flag column of the rows selected by `where`: each position of
  // `lines` that holds "1" becomes "1" (the others keep their value). Returns the rows changed.
  virtual long mark_pending(const archive::Table& t, const Where& where,
                            const std::string& lines) = 0;

  // The sync lock of a line: nullptr when another process holds it and `wait` is false (then
  // *holder says who, when known); with `wait`, blocks until it is free.
  virtual std::unique_ptr<Lock> lock_line(int32_t line, bool wait, std::string* holder) = 0;

  // A new, empty archive of the current schema in place of the one Initialize(database_file)
  // would open. It is built aside and opened: rows can be written, and nothing replaces the
  // existing archive until publish_new_archive(). Abandoned when released before. An existing
  // archive raises error 58 (file already exists) unless `replace`.
  virtual void begin_new_archive(const std::string& database_file, bool replace) = 0;
  virtual void publish_new_archive() = 0;
  // Brings an archive of an older schema to the current one, keeping every row.
  virtual void upgrade_schema(const std::string& database_file) = 0;
};

}  // namespace qk
