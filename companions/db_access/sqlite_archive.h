// The archive in a SQLite file: statements prepared once and cached by their SQL text, a locked
// file waited for briefly, then reported.
#pragma once

#include <unordered_map>

#include "db_access/archive.h"

struct sqlite3;
struct sqlite3_stmt;

namespace qk::companions {

class SqliteArchive : public Archive {
 public:
  // Opens an existing archive file for reading and writing; raises error 53 when the file does
  // not exist (it is never created here) and a database error when it is not an archive.
  static std::shared_ptr<Archive> open(const std::string& path, bool any_version);
  // Creates a new archive file with the schema (the file must not exist).
  static std::shared_ptr<Archive> create(const std::string& path);
  ~SqliteArchive() override;

  std::shared_ptr<automation::MemoryRecordset> query(
      const std::string& sql, const std::vector<Variant>& params = {}) override;
  void each_row(const std::string& sql, const std::vector<Variant>& params,
                const std::function<void(std::vector<Variant>&)>& each) override;
  int execute(const std::string& sql, const std::vector<Variant>& params = {}) override;
  void execute_script(const std::string& sql) override;
  void begin(bool write) override;
  void end(bool commit) override;
  bool in_transaction() override;
  std::string suspect_sql(const archive::Table& t) const override;
  int64_t next_version() override;
  int schema_version() override;
  bool wait_for_change(double seconds) override;
  bool has_table(const std::string& name) override;
  void upgrade() override;
  std::unique_ptr<ArchiveTools::Lock> lock_line(const std::string& store, int32_t line, bool wait,
                                                std::string* holder) override;

 private:
  SqliteArchive(sqlite3* db, std::string path);
  struct Statement {
    sqlite3_stmt* stmt = nullptr;
    // Its result's column names, shared by the recordsets it fills.
    std::shared_ptr<const automation::ColumnNames> columns;
  };
  Statement& prepare(const std::string& sql);
  void bind(sqlite3_stmt* s, const std::vector<Variant>& params);
  // Runs a query and hands each row to `each` (which may take its values); *names, when asked,
  // gets the result's column names before the first row.
  void step_rows(const std::string& sql, const std::vector<Variant>& params,
                 std::shared_ptr<const automation::ColumnNames>* names,
                 const std::function<void(std::vector<Variant>&)>& each);
  [[noreturn]] void fail(const std::string& what);

  sqlite3* db_;
  std::optional<int> data_version_;  // the change counter last seen
  std::unordered_map<std::string, Statement> statements_;
};

}  // namespace qk::companions
