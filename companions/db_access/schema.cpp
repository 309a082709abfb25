#include "db_access/schema.h"

#include "qk/archive_schema.h"

namespace qk::companions {

std::string sql_text(std::string_view text) {
  std::string s = "'";
  for (char ch : text) s += ch == '\'' ? std::string("''") : std::string(1, ch);
  return s + "'";
}

namespace {

using archive::Column;
using archive::ColumnType;
using archive::Table;

std::string joined(std::span<const std::string_view> names) {
  std::string s;
  for (auto n : names) s += (s.empty() ? "" : ", ") + std::string(n);
  return s;
}

std::string column_sql(const Column& c) {
  std::string s = "  " + std::string(c.name) + " " +
                  (c.type == ColumnType::Integer ? "INTEGER"
                   : c.type == ColumnType::Real  ? "REAL"
                                                 : "TEXT");
  if (c.not_null) s += " NOT NULL";
  if (!c.default_sql.empty()) s += " DEFAULT " + std::string(c.default_sql);
  if (!c.check_sql.empty()) s += " CHECK (" + std::string(c.check_sql) + ")";
  return s;
}

std::string table_sql(const Table& t) {
  std::string s = "-- " + std::string(t.comment) + "\nCREATE TABLE " + std::string(t.name) + " (\n";
  for (std::size_t i = 0; i < t.columns.size(); ++i)
    s += column_sql(t.columns[i]) + (i + 1 < t.columns.size() || !t.key.empty() ? ",\n" : "\n");
  if (!t.key.empty()) s += "  PRIMARY KEY (" + joined(t.key) + ")\n";
  s += ");\n";
  int n = 0;
  for (auto index : t.indexes)
    s += "CREATE INDEX " + std::string(t.name) + "_BY_" + std::to_string(++n) + " ON " +
         std::string(t.name) + " (" + std::string(index) + ");\n";
  return s;
}

bool has_row_version(const Table& t) {
  return archive::find_column(t, archive::kRowVersionColumn) != nullptr;
}

// A write event takes the next number of QK_SEQUENCE, so that (rowid, version) never repeats even
// when a deleted row's rowid is given to a new one.
const char* kNextVersion =
    "  UPDATE QK_SEQUENCE SET N = N + 1;\n"
    "  UPDATE %T SET ROW_VERSION = (SELECT N FROM QK_SEQUENCE) WHERE rowid = %R.rowid;\n";

std::string next_version(const Table& t, const char* row) {
  std::string s = kNextVersion;
  s.replace(s.find("%T"), 2, t.name);
  s.replace(s.find("%R"), 2, row);
  return s;
}

// A row's version changes with its content, never with its flags alone: the trigger watches
// only the other columns (a reset, which writes the flags only, does not even run it), and the
// tools' mark_pending sets a new version itself.
std::string version_triggers_sql(const Table& t) {
  std::string name(t.name), watched, changed;
  for (const Column& c : t.columns) {
    if (c.name == archive::kRowVersionColumn || c.name == t.flags) continue;
    watched += (watched.empty() ? "" : ", ") + std::string(c.name);
    changed += (changed.empty() ? "" : " OR ") + std::string("OLD.") + std::string(c.name) +
               " IS NOT NEW." + std::string(c.name);
  }
  return "CREATE TRIGGER " + name + "_ADDED AFTER INSERT ON " + name + " BEGIN\n" +
         next_version(t, "NEW") + "END;\n" + "CREATE TRIGGER " + name +
         "_CHANGED AFTER UPDATE OF " + watched + " ON " + name +
         "\n  WHEN NEW.ROW_VERSION IS OLD.ROW_VERSION AND (" + changed + ") BEGIN\n" +
         next_version(t, "NEW") + "END;\n";
}

// An advertising message's texts are part of it: a change to them changes the message's version.
std::string message_triggers_sql() {
  std::string s;
  for (const char* event : {"INSERT", "UPDATE", "DELETE"}) {
    for (const char* row : {"NEW", "OLD"}) {
      if ((std::string(event) == "INSERT" && std::string(row) == "OLD") ||
          (std::string(event) == "DELETE" && std::string(row) == "NEW"))
        continue;
      s += std::string("CREATE TRIGGER MESSAGES_") + event + "_" + row + " AFTER " + event +
           " ON MESSAGES BEGIN\n  UPDATE QK_SEQUENCE SET N = N + 1;\n"
           "  UPDATE ADVERTISING SET ROW_VERSION = (SELECT N FROM QK_SEQUENCE)\n"
           "   WHERE ADV_BNC = " +
           row + ".MSG_BNC AND MSG_LNK_ID = " + row + ".MSG_LNK_ID;\nEND;\n";
    }
  }
  return s;
}

std::string versioning_sql() {
  std::string s =
      "CREATE TABLE QK_SEQUENCE (N INTEGER NOT NULL);\nINSERT INTO QK_SEQUENCE VALUES (0);\n";
  for (const Table& t : archive::tables())
    if (has_row_version(t)) s += version_triggers_sql(t);
  s += message_triggers_sql();
  s += "PRAGMA user_version = " + std::to_string(archive::kSchemaVersion) + ";\n";
  return s;
}

// The same tables on PostgreSQL. Each table has a "rowid" column, the row's own number as
// SQLite gives it, so that the companion's statements run on both; whole numbers are 64-bit as
// in SQLite, so a copied archive keeps every value (the tools refuse what a scale cannot read).
std::string pg_table_sql(const Table& t) {
  std::string s = "CREATE TABLE " + std::string(t.name) + " (\n";
  for (const Column& c : t.columns) {
    s += "  " + std::string(c.name) + " " +
         (c.type == ColumnType::Integer ? "BIGINT"
          : c.type == ColumnType::Real  ? "DOUBLE PRECISION"
                                        : "TEXT");
    if (c.not_null) s += " NOT NULL";
    if (!c.default_sql.empty()) s += " DEFAULT " + std::string(c.default_sql);
    if (!c.check_sql.empty()) s += " CHECK (" + std::string(c.check_sql) + ")";
    s += ",\n";
  }
  s += "  rowid BIGSERIAL UNIQUE";
  if (!t.key.empty()) s += ",\n  PRIMARY KEY (" + joined(t.key) + ")";
  s += "\n);\nCOMMENT ON TABLE " + std::string(t.name) + " IS " + sql_text(t.comment) + ";\n";
  int n = 0;
  for (auto index : t.indexes)
    s += "CREATE INDEX " + std::string(t.name) + "_BY_" + std::to_string(++n) + " ON " +
         std::string(t.name) + " (" + std::string(index) + ");\n";
  return s;
}

const char* kPgNextVersion = "(SELECT qk_next_version())";

std::string pg_version_triggers_sql(const Table& t) {
  std::string name(t.name), changed;
  for (const Column& c : t.columns) {
    if (c.name == archive::kRowVersionColumn || c.name == t.flags) continue;
    changed += (changed.empty() ? "" : " OR ") + std::string("OLD.") + std::string(c.name) +
               " IS DISTINCT FROM NEW." + std::string(c.name);
  }
  return "CREATE FUNCTION " + name +
         "_VERSION() RETURNS trigger LANGUAGE plpgsql AS $$\nBEGIN\n"
         "  IF TG_OP = 'INSERT' OR (NEW.ROW_VERSION IS NOT DISTINCT FROM OLD.ROW_VERSION AND (" +
         changed + ")) THEN\n    NEW.ROW_VERSION := " + kPgNextVersion +
         ";\n  END IF;\n  RETURN NEW;\nEND $$;\nCREATE TRIGGER " + name +
         "_VERSION BEFORE INSERT OR UPDATE ON " + name + " FOR EACH ROW EXECUTE FUNCTION " + name +
         "_VERSION();\n";
}

}  // namespace

const std::string& pg_archive_schema_sql() {
  static const std::string sql = [] {
    std::string s;
    for (const Table& t : archive::tables()) s += pg_table_sql(t);
    // A sequence, not SQLite's one-row table: taking numbers from a row that one transaction
    // updates for each of 100,000 inserted rows leaves a chain of 100,000 row versions to walk.
    s += "CREATE SEQUENCE QK_SEQUENCE;\n"
         "CREATE TABLE QK_SCHEMA (VERSION INTEGER NOT NULL);\n"
         "INSERT INTO QK_SCHEMA VALUES (" +
         std::to_string(archive::kSchemaVersion) +
         ");\n"
         // The desktop database's arithmetic, as the SQLite connection registers it.
         "CREATE FUNCTION qk_next_version() RETURNS BIGINT LANGUAGE sql AS\n"
         "  'SELECT nextval(''qk_sequence'')';\n"
         "CREATE FUNCTION instr(s TEXT, t TEXT) RETURNS BIGINT LANGUAGE sql IMMUTABLE STRICT\n"
         "  AS 'SELECT strpos(s, t)::BIGINT';\n"
         "CREATE FUNCTION qk_int(x DOUBLE PRECISION) RETURNS BIGINT LANGUAGE sql IMMUTABLE STRICT\n"
         "  AS 'SELECT floor(x)::BIGINT';\n"
         "CREATE FUNCTION qk_mod(a DOUBLE PRECISION, b DOUBLE PRECISION) RETURNS BIGINT\n"
         "  LANGUAGE sql IMMUTABLE STRICT AS 'SELECT round(a)::BIGINT % round(b)::BIGINT';\n"
         "CREATE FUNCTION qk_intdiv(a DOUBLE PRECISION, b DOUBLE PRECISION) RETURNS BIGINT\n"
         "  LANGUAGE sql IMMUTABLE STRICT AS 'SELECT round(a)::BIGINT / round(b)::BIGINT';\n";
    for (const Table& t : archive::tables())
      if (has_row_version(t)) s += pg_version_triggers_sql(t);
    s += "CREATE FUNCTION MESSAGES_VERSION() RETURNS trigger LANGUAGE plpgsql AS $$\nBEGIN\n"
         "  IF TG_OP <> 'DELETE' THEN\n"
         "    UPDATE ADVERTISING SET ROW_VERSION = (SELECT qk_next_version())\n"
         "     WHERE ADV_BNC = NEW.MSG_BNC AND MSG_LNK_ID = NEW.MSG_LNK_ID;\n  END IF;\n"
         "  IF TG_OP <> 'INSERT' THEN\n"
         "    UPDATE ADVERTISING SET ROW_VERSION = (SELECT qk_next_version())\n"
         "     WHERE ADV_BNC = OLD.MSG_BNC AND MSG_LNK_ID = OLD.MSG_LNK_ID;\n  END IF;\n"
         "  RETURN NULL;\nEND $$;\nCREATE TRIGGER MESSAGES_VERSION AFTER INSERT OR UPDATE OR "
         "DELETE ON MESSAGES FOR EACH ROW EXECUTE FUNCTION MESSAGES_VERSION();\n";
    return s;
  }();
  return sql;
}

const std::string& archive_schema_sql() {
  static const std::string sql = [] {
    std::string s = "PRAGMA journal_mode = WAL;\n";
    for (const Table& t : archive::tables()) s += table_sql(t);
    return s + versioning_sql();
  }();
  return sql;
}

const std::string& upgrade_schema_sql() {
  static const std::string sql = [] {
    std::string s;
    for (const Table& t : archive::tables())
      if (has_row_version(t))
        s += "ALTER TABLE " + std::string(t.name) +
             " ADD COLUMN ROW_VERSION INTEGER NOT NULL DEFAULT 0;\n";
    return s + versioning_sql();
  }();
  return sql;
}

}  // namespace qk::companions
