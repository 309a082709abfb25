#include "db_access/sqlite_archive.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <thread>

#include "db_access/access_sql.h"
#include "db_access/schema.h"
#include "qk/column_rules.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk::companions {

namespace {
constexpr int kBusyTimeoutMs = 3000;  // a writer elsewhere: wait briefly, then report

// A file path inside a "file:" name: the characters a name of that form gives a meaning escaped.
std::string uri_path(const std::string& path) {
  std::string out;
  for (char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02X", static_cast<unsigned char>(c));
      out += hex;
    } else {
      out += c;
    }
  }
  return out;
}

// A stored value as the component reads it. SQLite keeps any value it cannot convert to the
// column's type, so the type is part of what the column's rule judges.
automation::Variant stored(sqlite3_value* v) {
  switch (sqlite3_value_type(v)) {
    case SQLITE_NULL:
      return automation::Variant::null();
    case SQLITE_INTEGER:
      return automation::Variant(static_cast<long long>(sqlite3_value_int64(v)));
    case SQLITE_FLOAT:
      return automation::Variant(sqlite3_value_double(v));
    default: {
      const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(v));
      return automation::Variant(
          std::string(bytes ? bytes : "", static_cast<std::size_t>(sqlite3_value_bytes(v))));
    }
  }
}

// qk_suspect('TABLE', column, …): 1 when one of the row's values may break its column's
// description, the columns given in the table's order.
void fn_suspect(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  const auto* name = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
  const archive::Table* t = name ? archive::find_table(name) : nullptr;
  if (!t || t->columns.size() != static_cast<std::size_t>(argc - 1)) {
    sqlite3_result_error(ctx, "qk_suspect: the columns do not match the table", -1);
    return;
  }
  bool any = false;
  for (int i = 1; i < argc && !any; ++i) {
    automation::Variant v = stored(argv[i]);
    // Text the component could not read in its 8-bit form fails where it is decoded.
    any = !archive::value_problem(t->columns[i - 1], v).empty() ||
          (v.is_string() && !has_8bit_form(v.to_string()));
  }
  sqlite3_result_int(ctx, any ? 1 : 0);
}
}  // namespace

SqliteArchive::SqliteArchive(sqlite3* db, std::string path) : Archive(std::move(path)), db_(db) {
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);
  // In WAL mode a crash can only lose the newest commits: a lost flag reset means a record is
  // sent again, never that one is lost, so commits need not wait for the disk.
  sqlite3_exec(db_, "PRAGMA synchronous = NORMAL", nullptr, nullptr, nullptr);
  // A sync walks the whole archive: keep its pages in memory rather than re-reading them.
  sqlite3_exec(db_, "PRAGMA cache_size = -8192", nullptr, nullptr, nullptr);
  sqlite3_extended_result_codes(db_, 1);
  register_access_functions(db_);
  sqlite3_create_function(db_, "qk_suspect", -1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                          fn_suspect, nullptr, nullptr);
}

std::string SqliteArchive::suspect_sql(const archive::Table& t) const {
  std::string sql = "qk_suspect('" + std::string(t.name) + "'";
  for (const auto& c : t.columns) sql += ", " + std::string(c.name);
  return sql + ")";
}

SqliteArchive::~SqliteArchive() {
  for (auto& [sql, s] : statements_) sqlite3_finalize(s.stmt);
  sqlite3_close_v2(db_);
}

std::shared_ptr<Archive> SqliteArchive::open(const std::string& path, bool any_version) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0)
    automation::raise(
        automation::kFileNotFound,
        "File not found: the archive " + path + " does not exist (create it with \"qkp init\")");
  // SQLite writes its journal files beside the archive: a user who may not write the folder
  // reads the archive read-only.
  std::string folder = std::filesystem::path(path).parent_path().string();
  bool folder_writable = ::access(folder.empty() ? "." : folder.c_str(), W_OK) == 0;
  bool writable = !read_only_requested() && folder_writable && ::access(path.c_str(), W_OK) == 0;
  std::string name = path;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  if (!writable) {
    // A WAL archive is read through its shared-memory file. Where that file is missing and
    // cannot be created, no connection has the archive open: it is read as it stands.
    bool shm = ::access((path + "-shm").c_str(), F_OK) == 0;
    name = "file:" + uri_path(path) + "?mode=ro" + (!folder_writable && !shm ? "&immutable=1" : "");
    flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
  }
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(name.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    std::string msg = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close_v2(db);
    automation::raise(automation::kDatabaseError, "cannot open the archive " + path + ": " + msg);
  }
  std::shared_ptr<SqliteArchive> a(new SqliteArchive(db, path));
  // Touch the schema now so that a file that is not an archive is reported at once.
  a->query("select count(*) from sqlite_master");
  a->check_schema(any_version);
  return a;
}

std::shared_ptr<Archive> SqliteArchive::create(const std::string& path) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(
      path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    std::string msg = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close_v2(db);
    automation::raise(automation::kDatabaseError, "cannot create the archive " + path + ": " + msg);
  }
  std::shared_ptr<SqliteArchive> a(new SqliteArchive(db, path));
  a->execute_script(archive_schema_sql());
  return a;
}

int64_t SqliteArchive::next_version() {
  execute("UPDATE QK_SEQUENCE SET N = N + 1");
  return static_cast<int64_t>(query("SELECT N FROM QK_SEQUENCE")->Fields("N").to_double());
}

bool SqliteArchive::has_table(const std::string& name) {
  auto rs = query(
      "select count(*) as n from sqlite_master where type = 'table' and name = ?1 "
      "collate nocase",
      {Variant(name)});
  return rs->Fields("n").to_int32() > 0;
}

int SqliteArchive::schema_version() {
  auto rs = query("PRAGMA user_version");
  return rs->Eof() ? 0 : rs->Fields(rs->columns()[0]).to_int32();
}

bool SqliteArchive::wait_for_change(double seconds) {
  // The counter moves when another connection commits to the file (this one's own writes do not
  // move it); reading it is cheap, so it is read often.
  auto counter = [this] {
    auto rs = query("PRAGMA data_version");
    return rs->Eof() ? 0 : rs->Fields(rs->columns()[0]).to_int32();
  };
  if (!data_version_) {
    data_version_ = counter();
    return false;
  }
  auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    int now = counter();
    if (now != *data_version_) {
      data_version_ = now;
      return true;
    }
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

void SqliteArchive::fail(const std::string& what) {
  int code = sqlite3_errcode(db_);
  if (code == SQLITE_READONLY || code == SQLITE_PERM || code == SQLITE_AUTH)
    automation::raise(automation::kDatabaseError,
                      what + ": the archive " + path_ +
                          (read_only_requested() ? " was opened only to read"
                                                 : " may only be read by this user") +
                          " (permission denied: " + sqlite3_errmsg(db_) + ")");
  automation::raise(code == SQLITE_BUSY || code == SQLITE_LOCKED ? automation::kWriteConflict
                                                                 : automation::kDatabaseError,
                    what + ": " + sqlite3_errmsg(db_) + " (archive " + path_ + ")");
}

SqliteArchive::Statement& SqliteArchive::prepare(const std::string& sql) {
  auto it = statements_.find(sql);
  if (it != statements_.end()) {
    sqlite3_reset(it->second.stmt);
    sqlite3_clear_bindings(it->second.stmt);
    return it->second;
  }
  if (statements_.size() >= kMaxCachedStatements) {
    for (auto& [text, st] : statements_) sqlite3_finalize(st.stmt);
    statements_.clear();
  }
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &s, nullptr) != SQLITE_OK)
    fail("cannot run \"" + cp1252_to_utf8(sql) + "\"");
  return statements_.emplace(sql, Statement{s, nullptr}).first->second;
}

void SqliteArchive::bind(sqlite3_stmt* s, const std::vector<Variant>& params) {
  for (std::size_t i = 0; i < params.size(); ++i) {
    int idx = static_cast<int>(i) + 1;
    const Variant& v = params[i];
    switch (v.type()) {
      case automation::VarType::Empty:
      case automation::VarType::Null:
        sqlite3_bind_null(s, idx);
        break;
      case automation::VarType::Boolean:
      case automation::VarType::Integer:
      case automation::VarType::Long:
        sqlite3_bind_int64(s, idx, v.to_int32());
        break;
      case automation::VarType::Double:
        sqlite3_bind_double(s, idx, v.to_double());
        break;
      case automation::VarType::String: {
        std::string utf8 = cp1252_to_utf8(v.to_string());
        sqlite3_bind_text(s, idx, utf8.c_str(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
        break;
      }
      default:
        automation::raise(automation::kTypeMismatch);
    }
  }
}

void SqliteArchive::step_rows(const std::string& sql, const std::vector<Variant>& params,
                              std::shared_ptr<const automation::ColumnNames>* names,
                              const std::function<void(std::vector<Variant>&)>& each) {
  Statement& statement = prepare(sql);
  sqlite3_stmt* s = statement.stmt;
  bind(s, params);
  int n = sqlite3_column_count(s);
  // A statement recompiled after a change of schema may name other columns.
  if (!statement.columns || statement.columns->size() != static_cast<std::size_t>(n)) {
    std::vector<std::string> spelled;
    for (int c = 0; c < n; ++c) spelled.emplace_back(sqlite3_column_name(s, c));
    statement.columns = std::make_shared<const automation::ColumnNames>(std::move(spelled));
  }
  auto columns = statement.columns;
  if (names) *names = columns;
  long row = 0;
  std::vector<Variant> values;
  values.reserve(static_cast<std::size_t>(n));
  while (true) {
    int rc = sqlite3_step(s);
    if (rc == SQLITE_DONE) break;
    if (rc != SQLITE_ROW) {
      sqlite3_reset(s);
      fail("cannot read \"" + cp1252_to_utf8(sql) + "\"");
    }
    ++row;
    values.clear();
    for (int c = 0; c < n; ++c) {
      switch (sqlite3_column_type(s, c)) {
        case SQLITE_NULL:
          values.push_back(Variant::null());
          break;
        case SQLITE_INTEGER:
          values.emplace_back(static_cast<long long>(sqlite3_column_int64(s, c)));
          break;
        case SQLITE_FLOAT:
          values.emplace_back(sqlite3_column_double(s, c));
          break;
        default: {
          const char* text = reinterpret_cast<const char*>(sqlite3_column_text(s, c));
          std::string_view utf8(text ? text : "",
                                static_cast<std::size_t>(sqlite3_column_bytes(s, c)));
          auto converted = utf8_to_cp1252(utf8);
          if (!converted) {
            // Copy what the report needs before the reset frees the column's text.
            const char* table = sqlite3_column_table_name(s, c);
            std::string origin = std::string("table ") + (table ? table : "?") + ", column " +
                                 columns->names()[static_cast<std::size_t>(c)] + ", row " +
                                 std::to_string(row);
            std::string bad(utf8);
            sqlite3_reset(s);
            utf8_to_cp1252_or_raise(bad, origin);
            automation::raise(automation::kTypeMismatch, "the text of " + origin + " is not valid");
          }
          values.emplace_back(std::move(*converted));
        }
      }
    }
    try {
      each(values);
    } catch (...) {
      sqlite3_reset(s);
      throw;
    }
  }
  sqlite3_reset(s);
}

void SqliteArchive::each_row(const std::string& sql, const std::vector<Variant>& params,
                             const std::function<void(std::vector<Variant>&)>& each) {
  step_rows(sql, params, nullptr, each);
}

std::shared_ptr<automation::MemoryRecordset> SqliteArchive::query(
    const std::string& sql, const std::vector<Variant>& params) {
  std::shared_ptr<const automation::ColumnNames> names;
  std::shared_ptr<automation::MemoryRecordset> rs;
  step_rows(sql, params, &names, [&](std::vector<Variant>& row) {
    if (!rs) rs = std::make_shared<automation::MemoryRecordset>(names);
    rs->take_row(row);
  });
  return rs ? rs : std::make_shared<automation::MemoryRecordset>(names);
}

int SqliteArchive::execute(const std::string& sql, const std::vector<Variant>& params) {
  drop_batch();
  sqlite3_stmt* s = prepare(sql).stmt;
  bind(s, params);
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
  }
  if (rc != SQLITE_DONE) {
    sqlite3_reset(s);
    fail("cannot run \"" + cp1252_to_utf8(sql) + "\"");
  }
  sqlite3_reset(s);
  return sqlite3_changes(db_);
}

void SqliteArchive::execute_script(const std::string& sql) {
  drop_batch();
  char* err = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err) != SQLITE_OK) {
    std::string msg = err ? err : "unknown error";
    sqlite3_free(err);
    automation::raise(automation::kDatabaseError, msg + " (archive " + path_ + ")");
  }
}

void SqliteArchive::begin(bool write) {
  execute(write ? "BEGIN IMMEDIATE" : "BEGIN");
  transaction_edge(!write);
}

void SqliteArchive::end(bool commit) {
  if (!in_transaction()) return;
  transaction_edge();
  if (commit)
    execute("COMMIT");
  else
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
}

bool SqliteArchive::in_transaction() {
  return sqlite3_get_autocommit(db_) == 0;
}

void SqliteArchive::upgrade() {
  Transaction t(*this);
  execute_script(upgrade_schema_sql(schema_version()));
  t.commit();
}

namespace {

class FileLock : public ArchiveTools::Lock {
 public:
  explicit FileLock(int fd) : fd_(fd) {}
  ~FileLock() override { ::close(fd_); }

 private:
  int fd_;
};

std::string now_text() {
  std::time_t t = std::time(nullptr);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", std::localtime(&t));
  return buf;
}

}  // namespace

std::unique_ptr<ArchiveTools::Lock> SqliteArchive::lock_line(const std::string& store, int32_t line,
                                                             bool wait, std::string* holder) {
  std::string path = path_ + (store.empty() ? "" : ".store-" + store) + ".sync-line-" +
                     std::to_string(line) + ".lock";
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0)
    automation::raise(automation::kPathFileAccessError,
                      "cannot open the sync lock " + path + ": " + std::strerror(errno));
  // An open-file-description lock: released when the process ends however it ends, and it
  // excludes a second sync in the same process as well.
  struct flock fl {};
  fl.l_type = F_WRLCK;
  fl.l_whence = SEEK_SET;
  while (::fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &fl) != 0) {
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EACCES) {
      if (holder) {
        char buf[256];
        ssize_t n = ::pread(fd, buf, sizeof buf - 1, 0);
        *holder = n > 0 ? std::string(buf, static_cast<std::size_t>(n)) : "";
      }
      ::close(fd);
      return nullptr;
    }
    int err = errno;
    ::close(fd);
    automation::raise(automation::kPathFileAccessError,
                      "cannot lock " + path + ": " + std::strerror(err));
  }
  char host[128] = "?";
  ::gethostname(host, sizeof host - 1);
  std::string who =
      "process " + std::to_string(::getpid()) + " on " + host + " since " + now_text();
  if (::ftruncate(fd, 0) == 0 && ::pwrite(fd, who.data(), who.size(), 0) < 0) {
    // The description is only informative.
  }
  return std::make_unique<FileLock>(fd);
}

}  // namespace qk::companions
