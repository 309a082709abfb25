// The archive in a PostgreSQL database, for a chain whose stores and machines share one back
// office. The companion's statements are rewritten once per text into PostgreSQL's dialect and
// prepared on the connection; a read transaction is a repeatable-read snapshot.
#pragma once

#include <map>
#include <unordered_map>

#include "db_access/archive.h"

struct pg_conn;
struct pg_result;

namespace qk::companions {

class PgArchive : public Archive, public std::enable_shared_from_this<PgArchive> {
 public:
  // Connects to the database of a "postgresql://" URI. Unless any_version, the database must
  // hold an archive of this version.
  static std::shared_ptr<Archive> open(const std::string& uri, bool any_version);
  // Connects and, in a transaction left open until end(true), creates the archive's tables,
  // replacing those there are when replace (otherwise an archive there is an error).
  static std::shared_ptr<Archive> create(const std::string& uri, bool replace);
  ~PgArchive() override;

  std::shared_ptr<automation::MemoryRecordset> query(
      const std::string& sql, const std::vector<Variant>& params = {}) override;
  int execute(const std::string& sql, const std::vector<Variant>& params = {}) override;
  void execute_script(const std::string& sql) override;
  // COPY … FROM STDIN: one round trip for the lot instead of one per row.
  void insert_many(const std::string& table, const std::vector<std::string>& columns,
                   const std::vector<std::vector<Variant>>& rows) override;
  void begin(bool write) override;
  void end(bool commit) override;
  bool in_transaction() override { return depth_ > 0; }
  std::string lost() const override { return lost_; }
  bool has_table(const std::string& name) override;
  std::string suspect_sql(const archive::Table& t) const override;
  int64_t next_version() override;
  int schema_version() override;
  bool round_trips() const override { return true; }
  bool wait_for_change(double seconds) override;
  void upgrade() override;
  std::unique_ptr<ArchiveTools::Lock> lock_line(const std::string& store, int32_t line, bool wait,
                                                std::string* holder) override;

  // The URI with its password replaced by "***", for messages.
  static std::string shown(const std::string& uri);

 private:
  PgArchive(pg_conn* c, const std::string& uri);
  struct Prepared {
    std::string name;
    int parameters;
  };
  // Raises the lost connection's error when the connection was lost.
  void usable() const;
  const Prepared& prepare(const std::string& sql);
  // Runs a prepared statement; the caller clears the result.
  pg_result* run(const std::string& sql, const std::vector<Variant>& params);
  // The result when it succeeded; otherwise clears it and raises "what: <server's reason>".
  pg_result* checked(pg_result* r, const std::string& what);
  // Raises error 3218 (kWriteConflict) when `conflict`, else a database error.
  [[noreturn]] void fail(const std::string& what, const char* detail, bool conflict = false);

  std::string lost_;        // why the connection was lost
  bool listening_ = false;  // to the archive's change notifications
  // A result column's table, by the identifier the server gives it ("?" for none).
  std::string table_name(unsigned oid);

  pg_conn* conn_;
  std::unordered_map<std::string, Prepared> statements_;
  int depth_ = 0;         // nested begin()s; the outermost one is the database's transaction
  bool aborted_ = false;  // a statement failed inside it: it can only roll back
};

}  // namespace qk::companions
