#include "db_access/schema.h"

#include <vector>

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

// A column's rule as a CHECK expression, from the fields the tools check: a range of whole
// numbers, or the texts allowed.
std::string literal(const archive::Default& d) {
  return d.kind == archive::Default::Kind::Text ? sql_text(d.text) : std::to_string(d.integer);
}

std::string check_text(const Column& c) {
  std::string name(c.name);
  if (!c.allowed.empty()) {
    std::string list;
    for (auto a : c.allowed) list += (list.empty() ? "" : ",") + sql_text(a);
    return name + " IN (" + list + ")";
  }
  if (c.type != ColumnType::Integer) return "";
  if (c.min != archive::kIntegerMin && c.max == archive::kIntegerMax)
    return name + " >= " + std::to_string(c.min);
  if (c.min != archive::kIntegerMin || c.max != archive::kIntegerMax)
    return name + " BETWEEN " + std::to_string(c.min) + " AND " + std::to_string(c.max);
  return "";
}

// What differs between the two databases' schemas; everything else is written once below.
struct Dialect {
  const char* integer;  // whole numbers as wide as SQLite's (a copied archive keeps every value)
  const char* real;
  const char* text;
  const char* row_id;  // the row's own number as a column ("" where the database has one)
  bool comment_on;     // the table's comment as COMMENT ON TABLE (else a leading "--" line)
};
constexpr Dialect kSqlite{"INTEGER", "REAL", "TEXT", "", false};
// Each table has a "rowid" column, the row's own number as SQLite gives it, so that the
// companion's statements run on both.
constexpr Dialect kPostgres{"BIGINT", "DOUBLE PRECISION", "TEXT", "rowid BIGSERIAL UNIQUE", true};

// "NAME TYPE NOT NULL DEFAULT … CHECK (…)": as a table is created, and as an upgrade adds it.
std::string column_sql(const Column& c, const Dialect& d) {
  std::string l = std::string(c.name) + " " +
                  (c.type == ColumnType::Integer ? d.integer
                   : c.type == ColumnType::Real  ? d.real
                                                 : d.text);
  if (c.not_null) l += " NOT NULL";
  if (!c.default_value.none()) l += " DEFAULT " + literal(c.default_value);
  if (std::string check = check_text(c); !check.empty()) l += " CHECK (" + check + ")";
  return l;
}

std::string table_sql(const Table& t, const Dialect& d);

// The tables and columns later versions added to an archive of version `from`.
std::string added_columns_sql(int from, const Dialect& d) {
  std::string s;
  for (const auto& added : archive::kAddedTables)
    if (added.version > from) s += table_sql(*archive::find_table(added.table), d);
  for (const auto& added : archive::kAddedColumns)
    if (added.version > from) {
      const Table& t = *archive::find_table(added.table);
      s += "ALTER TABLE " + std::string(t.name) + " ADD COLUMN " +
           column_sql(*archive::find_column(t, added.column), d) + ";\n";
    }
  return s;
}

std::string table_sql(const Table& t, const Dialect& d) {
  std::string s = d.comment_on ? "" : "-- " + std::string(t.comment) + "\n";
  s += "CREATE TABLE " + std::string(t.name) + " (\n";
  std::vector<std::string> lines;
  for (const Column& c : t.columns) lines.push_back("  " + column_sql(c, d));
  if (*d.row_id) lines.push_back("  " + std::string(d.row_id));
  if (!t.key.empty()) lines.push_back("  PRIMARY KEY (" + joined(t.key) + ")");
  for (std::size_t i = 0; i < lines.size(); ++i)
    s += lines[i] + (i + 1 < lines.size() ? ",\n" : "\n");
  s += ");\n";
  if (d.comment_on)
    s += "COMMENT ON TABLE " + std::string(t.name) + " IS " + sql_text(t.comment) + ";\n";
  int n = 0;
  for (auto index : t.indexes)
    s += "CREATE INDEX " + std::string(t.name) + "_BY_" + std::to_string(++n) + " ON " +
         std::string(t.name) + " (" + std::string(index) + ");\n";
  return s;
}

// The columns whose change renews a row's version: all but the version and the flags (a reset,
// which writes the flags only, never renews it).
std::vector<std::string> content_columns(const Table& t) {
  std::vector<std::string> v;
  for (const Column& c : t.columns)
    if (c.name != archive::kRowVersionColumn && c.name != t.flags) v.emplace_back(c.name);
  return v;
}

// "OLD.A <differs> NEW.A OR …" over the content columns.
std::string content_changed(const Table& t, const char* differs) {
  std::string s;
  for (const auto& c : content_columns(t))
    s += (s.empty() ? "" : " OR ") + std::string("OLD.") + c + " " + differs + " NEW." + c;
  return s;
}

// "P1 = ROW.C1 AND P2 = ROW.C2" of a cascade.
std::string cascade_match(const archive::Cascade& c, const std::string& row) {
  std::string s;
  for (const auto& [parent, child] : c.match)
    s += (s.empty() ? "" : " AND ") + std::string(parent) + " = " + row + "." + std::string(child);
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
  std::string name(t.name), watched, changed = content_changed(t, "IS NOT");
  for (const auto& c : content_columns(t)) watched += (watched.empty() ? "" : ", ") + c;
  return "CREATE TRIGGER " + name + "_ADDED AFTER INSERT ON " + name + " BEGIN\n" +
         next_version(t, "NEW") + "END;\n" + "CREATE TRIGGER " + name +
         "_CHANGED AFTER UPDATE OF " + watched + " ON " + name +
         "\n  WHEN NEW.ROW_VERSION IS OLD.ROW_VERSION AND (" + changed + ") BEGIN\n" +
         next_version(t, "NEW") + "END;\n";
}

// A cascade of qk/archive_schema.h: a trigger per event and row image on the child.
std::string cascade_triggers_sql(const archive::Cascade& c) {
  std::string s;
  for (const char* event : {"INSERT", "UPDATE", "DELETE"})
    for (const char* row : {"NEW", "OLD"}) {
      if ((std::string(event) == "INSERT" && std::string(row) == "OLD") ||
          (std::string(event) == "DELETE" && std::string(row) == "NEW"))
        continue;
      s += "CREATE TRIGGER " + std::string(c.child) + "_" + event + "_" + row + " AFTER " + event +
           " ON " + std::string(c.child) +
           " BEGIN\n  UPDATE QK_SEQUENCE SET N = N + 1;\n  UPDATE " + std::string(c.parent) +
           " SET ROW_VERSION = (SELECT N FROM QK_SEQUENCE)\n   WHERE " + cascade_match(c, row) +
           ";\nEND;\n";
    }
  return s;
}

std::string versioning_sql() {
  std::string s =
      "CREATE TABLE QK_SEQUENCE (N INTEGER NOT NULL);\nINSERT INTO QK_SEQUENCE VALUES (0);\n";
  for (const Table& t : archive::tables())
    if (has_row_version(t)) s += version_triggers_sql(t);
  for (const auto& c : archive::kCascades) s += cascade_triggers_sql(c);
  s += "PRAGMA user_version = " + std::to_string(archive::kSchemaVersion) + ";\n";
  return s;
}

const char* kPgNextVersion = "(SELECT qk_next_version())";

// The server's helper functions: the version numbers, and the desktop database's arithmetic as
// the SQLite connection registers it. Created and dropped from this one list.
struct PgFunction {
  const char* name;
  const char* create;
  int since = 2;  // the schema version that added it (an upgrade creates the newer ones)
};
constexpr PgFunction kPgFunctions[] = {
    {"qk_next_version",
     "CREATE FUNCTION qk_next_version() RETURNS BIGINT LANGUAGE sql AS\n"
     "  'SELECT nextval(''qk_sequence'')';\n"},
    {"instr",
     "CREATE FUNCTION instr(s TEXT, t TEXT) RETURNS BIGINT LANGUAGE sql IMMUTABLE STRICT\n"
     "  AS 'SELECT strpos(s, t)::BIGINT';\n"},
    {"qk_int",
     "CREATE FUNCTION qk_int(x DOUBLE PRECISION) RETURNS BIGINT LANGUAGE sql IMMUTABLE STRICT\n"
     "  AS 'SELECT floor(x)::BIGINT';\n"},
    {"qk_mod",
     "CREATE FUNCTION qk_mod(a DOUBLE PRECISION, b DOUBLE PRECISION) RETURNS BIGINT\n"
     "  LANGUAGE sql IMMUTABLE STRICT AS 'SELECT round(a)::BIGINT % round(b)::BIGINT';\n"},
    {"qk_intdiv",
     "CREATE FUNCTION qk_intdiv(a DOUBLE PRECISION, b DOUBLE PRECISION) RETURNS BIGINT\n"
     "  LANGUAGE sql IMMUTABLE STRICT AS 'SELECT round(a)::BIGINT / round(b)::BIGINT';\n"},
    // The flag writer the SQLite connection registers (access_sql.h), on bit strings.
    {"qk_flags",
     "CREATE FUNCTION qk_flags(c TEXT, w TEXT, clear_only INTEGER, m TEXT) RETURNS TEXT\n"
     "  LANGUAGE sql IMMUTABLE AS 'SELECT ((c::varbit & ~(coalesce(m, repeat(''1'', "
     "length(c)))::varbit)) | ((CASE WHEN clear_only = 1 THEN c::varbit & w::varbit ELSE "
     "w::varbit END) & coalesce(m, repeat(''1'', length(c)))::varbit))::text';\n",
     3},
    // Wakes the listeners of the archive's changes (a service waiting for pending records).
    {"qk_archive_changed",
     "CREATE FUNCTION qk_archive_changed() RETURNS trigger LANGUAGE plpgsql AS $$\nBEGIN\n"
     "  PERFORM pg_notify('qk_archive_changed', TG_TABLE_NAME);\n  RETURN NULL;\nEND $$;\n",
     5},
};

// Every statement that writes a table of master data or of the network notifies the listeners
// once, at its commit; the tools' own tables (the journal) do not.
std::string pg_change_triggers_sql() {
  std::string s;
  for (const Table& t : archive::tables())
    if (!t.own)
      s += "CREATE TRIGGER " + std::string(t.name) +
           "_CHANGED AFTER INSERT OR UPDATE OR DELETE ON " + std::string(t.name) +
           " FOR EACH STATEMENT EXECUTE FUNCTION qk_archive_changed();\n";
  return s;
}

std::string pg_version_triggers_sql(const Table& t) {
  std::string name(t.name), changed = content_changed(t, "IS DISTINCT FROM");
  return "CREATE FUNCTION " + name +
         "_VERSION() RETURNS trigger LANGUAGE plpgsql AS $$\nBEGIN\n"
         "  IF TG_OP = 'INSERT' OR (NEW.ROW_VERSION IS NOT DISTINCT FROM OLD.ROW_VERSION AND (" +
         changed + ")) THEN\n    NEW.ROW_VERSION := " + kPgNextVersion +
         ";\n  END IF;\n  RETURN NEW;\nEND $$;\nCREATE TRIGGER " + name +
         "_VERSION BEFORE INSERT OR UPDATE ON " + name + " FOR EACH ROW EXECUTE FUNCTION " + name +
         "_VERSION();\n";
}

std::string pg_cascade_sql(const archive::Cascade& c) {
  std::string child(c.child), renew = "    UPDATE " + std::string(c.parent) +
                                      " SET ROW_VERSION = " + kPgNextVersion + "\n     WHERE ";
  return "CREATE FUNCTION " + child +
         "_VERSION() RETURNS trigger LANGUAGE plpgsql AS $$\nBEGIN\n"
         "  IF TG_OP <> 'DELETE' THEN\n" +
         renew + cascade_match(c, "NEW") + ";\n  END IF;\n  IF TG_OP <> 'INSERT' THEN\n" + renew +
         cascade_match(c, "OLD") + ";\n  END IF;\n  RETURN NULL;\nEND $$;\nCREATE TRIGGER " +
         child + "_VERSION AFTER INSERT OR UPDATE OR DELETE ON " + child +
         " FOR EACH ROW EXECUTE FUNCTION " + child + "_VERSION();\n";
}

// The versioning a schema version after `from` added: the triggers of tables that got
// ROW_VERSION since, and the cascades added since, in either database's form.
std::string versioning_added_sql(int from, std::string (*triggers)(const Table&),
                                 std::string (*cascade)(const archive::Cascade&)) {
  std::string s;
  for (const Table& t : archive::tables())
    if (has_row_version(t) && archive::added_in(t.name, archive::kRowVersionColumn) > from)
      s += triggers(t);
  for (const auto& c : archive::kCascades)
    if (c.since > from) s += cascade(c);
  return s;
}

}  // namespace

const std::string& pg_archive_schema_sql() {
  static const std::string sql = [] {
    std::string s;
    for (const Table& t : archive::tables()) s += table_sql(t, kPostgres);
    // A sequence, not SQLite's one-row table: taking numbers from a row that one transaction
    // updates for each of 100,000 inserted rows leaves a chain of 100,000 row versions to walk.
    s += "CREATE SEQUENCE QK_SEQUENCE;\n"
         "CREATE TABLE QK_SCHEMA (VERSION INTEGER NOT NULL);\n"
         "INSERT INTO QK_SCHEMA VALUES (" +
         std::to_string(archive::kSchemaVersion) + ");\n";
    for (const auto& f : kPgFunctions) s += std::string(f.create);
    for (const Table& t : archive::tables())
      if (has_row_version(t)) s += pg_version_triggers_sql(t);
    for (const auto& c : archive::kCascades) s += pg_cascade_sql(c);
    return s + pg_change_triggers_sql();
  }();
  return sql;
}

std::string pg_drop_schema_sql(bool sequence) {
  std::string s = std::string(sequence ? "DROP SEQUENCE" : "DROP TABLE") +
                  " IF EXISTS QK_SEQUENCE CASCADE;\nDROP TABLE IF EXISTS QK_SCHEMA";
  for (const Table& t : archive::tables()) s += ", " + std::string(t.name);
  s += " CASCADE;\nDROP FUNCTION IF EXISTS ";
  std::string functions;
  for (const auto& f : kPgFunctions)
    functions += (functions.empty() ? "" : ", ") + std::string(f.name);
  for (const Table& t : archive::tables())
    if (has_row_version(t)) functions += ", " + std::string(t.name) + "_VERSION";
  for (const auto& c : archive::kCascades) functions += ", " + std::string(c.child) + "_VERSION";
  return s + functions + " CASCADE;\n";
}

const std::string& archive_schema_sql() {
  static const std::string sql = [] {
    std::string s = "PRAGMA journal_mode = WAL;\n";
    for (const Table& t : archive::tables()) s += table_sql(t, kSqlite);
    return s + versioning_sql();
  }();
  return sql;
}

std::string upgrade_schema_sql(int from) {
  std::string s = added_columns_sql(from, kSqlite);
  if (from >= 2)
    return s + versioning_added_sql(from, version_triggers_sql, cascade_triggers_sql) +
           "PRAGMA user_version = " + std::to_string(archive::kSchemaVersion) + ";\n";
  // The first versioned tables; the later ones got the column from added_columns_sql.
  for (const Table& t : archive::tables())
    if (has_row_version(t) && archive::added_in(t.name, archive::kRowVersionColumn) == 0)
      s += "ALTER TABLE " + std::string(t.name) +
           " ADD COLUMN ROW_VERSION INTEGER NOT NULL DEFAULT 0;\n";
  return s + versioning_sql();
}

std::string pg_upgrade_schema_sql(int from) {
  std::string s = added_columns_sql(from, kPostgres);
  for (const auto& f : kPgFunctions)
    if (f.since > from) s += "CREATE OR REPLACE" + std::string(f.create).substr(6);
  s += versioning_added_sql(from, pg_version_triggers_sql, pg_cascade_sql);
  if (from < 5) s += pg_change_triggers_sql();
  return s + "UPDATE QK_SCHEMA SET VERSION = " + std::to_string(archive::kSchemaVersion) + ";\n";
}

}  // namespace qk::companions
