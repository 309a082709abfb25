// One connection to an archive, whichever database holds it: statements written in the
// companion's SQL (numbered "?N" or plain "?" placeholders, "rowid" for a row's own number) run
// with bound parameters, results come back as recordsets with the text in the component's 8-bit
// form, writes are grouped in transactions.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "db_access/batch_reads.h"
#include "db_access/held_resets.h"
#include "qk/archive_tools.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk::companions {

using automation::Variant;

// Whether the host asked for archives opened only to read (qk::open_archives_read_only).
bool read_only_requested();
void request_read_only(bool read_only);

class Archive {
 public:
  // Opens the archive at a location: a PostgreSQL connection URI ("postgresql://…") or the path
  // of a SQLite file. An archive of an older schema is refused (naming the upgrade) unless
  // any_version; a missing file is error 53, an unreachable server a database error.
  static std::shared_ptr<Archive> open(const std::string& location, bool any_version = false);
  static bool is_server(const std::string& location);
  virtual ~Archive() = default;

  // Runs a query with bound parameters and returns all its rows.
  virtual std::shared_ptr<automation::MemoryRecordset> query(
      const std::string& sql, const std::vector<Variant>& params = {}) = 0;
  // Runs a query and hands each row's values, in the result's column order, to `each`, which may
  // take them: for long results read once, without a recordset.
  virtual void each_row(const std::string& sql, const std::vector<Variant>& params,
                        const std::function<void(std::vector<Variant>&)>& each);
  // Runs a statement (no rows); returns the number of rows changed.
  virtual int execute(const std::string& sql, const std::vector<Variant>& params = {}) = 0;
  // Runs several statements of a script (schema, demo data) without parameters.
  virtual void execute_script(const std::string& sql) = 0;
  // Inserts many rows of one table (names already checked): one prepared insert each, or the
  // database's bulk way where it has one.
  virtual void insert_many(const std::string& table, const std::vector<std::string>& columns,
                           const std::vector<std::vector<Variant>>& rows);

  // Explicit transactions for the tools: a read transaction sees one unchanging archive, a write
  // transaction excludes other writers of the same rows; ending one that is not open does
  // nothing.
  virtual void begin(bool write) = 0;
  virtual void end(bool commit) = 0;
  virtual bool in_transaction() = 0;
  // Whether the open transaction was begun to read (begin(false)): one snapshot until its end.
  bool in_read_transaction() const { return read_transaction_; }
  // Whether a batch's reads may be served by one read: within a read transaction, or while a
  // write transaction holds its resets and has written nothing since the batch was named.
  bool reads_batched() const { return read_transaction_ || held_resets.holding(); }
  // Whether the database holds a table of that name (in any letter case).
  virtual bool has_table(const std::string& name) = 0;
  // The archive policy both databases keep: a newer schema is refused; unless `any_version`, an
  // older one is refused with the way to upgrade it, and every table must be there.
  void check_schema(bool any_version);
  // Why the connection to the database was lost, or "" while it works. Once lost, every call
  // raises error 462 at once: nothing more is tried on that connection.
  virtual std::string lost() const { return ""; }

  // A transaction that rolls back unless committed. Inside an open transaction it joins it:
  // the outer one decides.
  class Transaction {
   public:
    explicit Transaction(Archive& a);
    ~Transaction();
    void commit();

   private:
    Archive& archive_;
    bool joined_ = false;
    bool done_ = false;
  };

  // Where the archive is, as the user gave it (a server's password is never shown).
  const std::string& path() const { return path_; }
  // A new row version, never given before (the one number source of the archive's triggers).
  virtual int64_t next_version() = 0;
  // The schema version the archive carries.
  virtual int schema_version() = 0;
  // Brings an archive of an older schema to this version, keeping every row.
  virtual void upgrade() = 0;
  // An expression that is 1 for a row of the table that may hold a value its column's
  // description does not allow, or a text with no 8-bit form, and 0 for the others (see
  // ArchiveTools::group_states).
  virtual std::string suspect_sql(const archive::Table& t) const = 0;

  // Whether each statement waits for a server's answer, so that a batch's writes are best sent
  // as few statements.
  virtual bool round_trips() const { return false; }

  // Waits for another connection's change (see ArchiveChanges::wait_for_change).
  virtual bool wait_for_change(double seconds) = 0;

  // The sync lock of one line (see ArchiveTools::lock_line).
  virtual std::unique_ptr<ArchiveTools::Lock> lock_line(const std::string& store, int32_t line,
                                                        bool wait, std::string* holder) = 0;

  // The reset guard of this connection: every instance on the thread shares it, so the tools set
  // it and the component's own database object honours it.
  std::optional<RowSnapshot> reset_guard;
  long guard_left = 0;  // rows the guarded writes left alone (changed, added or gone)
  // The store whose lines this connection's flag writes may change (ArchiveStores), with its
  // departments for each line 1..8; absent: every store's.
  struct StoreLimit {
    std::string store;
    std::array<std::vector<int32_t>, 8> departments;
  };
  std::optional<StoreLimit> store_limit;
  // The rows of the batch the sync builds next (batch_reads.h); every write and every
  // transaction's start and end drop them.
  BatchReads batch_reads;
  // Whether a batch's records are read, and rows written, a batch at a time (the default), or
  // each with a statement of its own: QK_ARCHIVE_BATCHES=off, to compare the two.
  bool batched = true;
  // The guarded resets kept for one write (ArchiveTools::hold_resets); a transaction's start and
  // end forget them.
  HeldResets held_resets;

 protected:
  explicit Archive(std::string path) : path_(std::move(path)) {}
  // Statements that embed their values (the generic ones, a batch's resets) differ each time:
  // a database keeps at most so many prepared, so a long walk does not hold one per record.
  static constexpr std::size_t kMaxCachedStatements = 512;
  // Called by a database at each write and at each transaction's start and end; `reading` when
  // a read transaction starts.
  void drop_batch(bool reading = false) {
    batch_reads.clear();
    read_transaction_ = reading;
  }
  // Called by a database at each transaction's start and end.
  void transaction_edge(bool reading = false) {
    drop_batch(reading);
    held_resets.clear();
  }

  std::string path_;

 private:
  bool read_transaction_ = false;
};

}  // namespace qk::companions
