// One SQLite archive connection: statements prepared once and cached by their SQL text, results
// read into recordsets with the text converted to the component's 8-bit form, writes grouped in
// transactions. A locked archive is waited for briefly, then reported.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "qk/archive_tools.h"
#include "qk/recordset.h"
#include "qk/variant.h"

struct sqlite3;
struct sqlite3_stmt;

namespace qk::companions {

using automation::Variant;

class Archive {
 public:
  // Opens an existing archive file for reading and writing; raises error 53 when the file does
  // not exist (it is never created here) and a database error when it is not an archive.
  // An archive of an older schema is refused (error naming the upgrade) unless any_version.
  static std::shared_ptr<Archive> open(const std::string& path, bool any_version = false);
  // Creates a new archive file with the schema (the file must not exist).
  static std::shared_ptr<Archive> create(const std::string& path);
  ~Archive();

  // Runs a query with bound parameters and returns all its rows.
  std::shared_ptr<automation::MemoryRecordset> query(const std::string& sql,
                                                     const std::vector<Variant>& params = {});
  // Runs a statement (no rows); returns the number of rows changed.
  int execute(const std::string& sql, const std::vector<Variant>& params = {});
  // Runs several statements of a script (schema, demo data) without parameters.
  void execute_script(const std::string& sql);

  // Explicit transactions for the tools: a deferred (read) or immediate (write) one; ending a
  // transaction that is not open does nothing.
  void begin(bool write);
  void end(bool commit);
  bool in_transaction();

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

  const std::string& path() const { return path_; }
  // The schema version the file carries (PRAGMA user_version).
  int schema_version();

  // The reset guard of this connection: every instance on the thread shares it, so the tools set
  // it and the component's own database object honours it.
  std::optional<RowSnapshot> reset_guard;
  long guard_left = 0;  // rows the guarded writes left alone (changed, added or gone)
  sqlite3* handle() { return db_; }

 private:
  Archive(sqlite3* db, std::string path);
  sqlite3_stmt* prepare(const std::string& sql);
  void bind(sqlite3_stmt* s, const std::vector<Variant>& params);
  [[noreturn]] void fail(const std::string& what);

  sqlite3* db_;
  std::string path_;
  std::unordered_map<std::string, sqlite3_stmt*> statements_;
};

}  // namespace qk::companions
