// The tools' members of the database companion (qk/archive_tools.h): transactions, record ids,
// group rows and the reset guard, rows by column, marking, the sync lock and new archives.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <optional>

#include "db_access/clsDbAccess.h"
#include "db_access/pg_archive.h"
#include "db_access/sqlite_archive.h"
#include "qk/column_rules.h"
#include "qk/error.h"

namespace qk::companions {

using automation::raise;

namespace {

const archive::Column& column_of(const archive::Table& t, std::string_view name) {
  const archive::Column* c = archive::find_column(t, name);
  if (!c)
    raise(automation::kItemNotFound,
          "the table " + std::string(t.name) + " has no column \"" + std::string(name) + "\"");
  return *c;
}

// " where A IS ? and B IS ?": IS matches Null as well as values.
std::string where_sql(const archive::Table& t, const Where& where, std::vector<Variant>* params) {
  std::string s;
  for (const auto& [name, value] : where) {
    s += (s.empty() ? " where " : " and ") + std::string(column_of(t, name).name) + " IS ?";
    params->push_back(value);
  }
  return s;
}

std::string order_sql(const archive::Table& t) {
  std::string s;
  for (auto c : archive::identity(t)) s += std::string(c) + ", ";
  return " order by " + s + "rowid";
}

// The keys of block n: n*15+1 .. n*15+15.
int64_t first_key(int64_t block) {
  return block * kKeysPerBlock + 1;
}
int64_t last_key(int64_t block) {
  return block * kKeysPerBlock + kKeysPerBlock;
}

void remove_database_files(const std::string& path) {
  std::error_code ec;
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix, ec);
}

}  // namespace

clsDbAccess::GroupSql clsDbAccess::group_sql(const GroupRef& ref) {
  const archive::Table& t = group_table(ref.group);
  GroupSql g{std::string(t.name), std::string(t.department) + " = ?", {ref.dept}};
  if (ref.group == RecordGroup::KeyBlock) {
    g.condition += " and TP_SCALE = ? and TP_KEY between ? and ?";
    g.params.insert(g.params.end(), {ref.scale, static_cast<long long>(first_key(ref.id)),
                                     static_cast<long long>(last_key(ref.id))});
  } else {
    g.condition += " and " + std::string(t.record_id) + " = ?";
    g.params.emplace_back(ref.id);
  }
  return g;
}

void clsDbAccess::update_flags(const GroupRef& ref, const std::string& stored) {
  GroupSql g = group_sql(ref);
  const archive::Table& t = group_table(ref.group);
  // Numbered placeholders: the flags are ?1, the group's values follow.
  std::string condition;
  int n = 1;
  for (char c : g.condition) condition += c == '?' ? "?" + std::to_string(++n) : std::string(1, c);
  std::vector<Variant> params{stored};
  params.insert(params.end(), g.params.begin(), g.params.end());
  Archive& a = archive();
  Archive::Transaction tx(a);
  guarded_update(a, g.table, "update " + g.table + " set " + std::string(t.flags) + " = ?1",
                 condition, params);
  tx.commit();
}

namespace {

// Under the connection's store limit, the SQL condition that a row of `t` belongs to a department
// whose line `line` is the store's; "" without a limit.
std::string store_line_condition(const Archive& a, const archive::Table& t, int line) {
  if (!a.store_limit || t.department.empty()) return "";
  const auto& depts = a.store_limit->departments[static_cast<std::size_t>(line - 1)];
  if (depts.empty()) return "0 = 1";
  std::string list;
  for (int32_t d : depts) list += (list.empty() ? "" : ", ") + std::to_string(d);
  return std::string(t.department) + " IN (" + list + ")";
}

// "update T set F = ?n" of the table's flag column: the flags written with qk_flags, position by
// position over what the row holds when it is written. Under a reset guard a position is only ever
// cleared (a reset computed before another line's reset committed cannot restore that line's
// flag); under a store limit only the store's lines change. Any other assignment: nothing.
std::optional<std::string> flag_assignment(const Archive& a, const std::string& table,
                                           const std::string& set) {
  const archive::Table* t = archive::find_table(table);
  if (!t || t->flags.empty()) return std::nullopt;
  std::size_t eq = set.find('=');
  if (eq == std::string::npos) return std::nullopt;
  auto trim = [](std::string x) {
    x.erase(0, x.find_first_not_of(' '));
    x.erase(x.find_last_not_of(' ') + 1);
    return x;
  };
  std::string column = trim(set.substr(0, eq)), value = trim(set.substr(eq + 1));
  if (!archive::same_name(column, t->flags) || value.size() < 2 || value[0] != '?' ||
      value.find_first_not_of("0123456789", 1) != std::string::npos)
    return std::nullopt;
  // The positions the store may write, per department: "CASE dept WHEN 1 THEN '10100000' … END".
  std::string writable = "NULL";
  if (a.store_limit && !t->department.empty()) {
    int width = archive::find_column(*t, t->flags)->flag_width;
    std::map<int32_t, std::string> masks;
    for (int line = 1; line <= width && line <= 8; ++line)
      for (int32_t d : a.store_limit->departments[static_cast<std::size_t>(line - 1)]) {
        auto& m =
            masks.try_emplace(d, std::string(static_cast<std::size_t>(width), '0')).first->second;
        m[static_cast<std::size_t>(line - 1)] = '1';
      }
    std::string none = "'" + std::string(static_cast<std::size_t>(width), '0') + "'";
    writable = masks.empty() ? none : "CASE " + std::string(t->department);
    for (const auto& [d, m] : masks) writable += " WHEN " + std::to_string(d) + " THEN '" + m + "'";
    if (!masks.empty()) writable += " ELSE " + none + " END";
  }
  std::string f(t->flags);
  std::string expr =
      "qk_flags(" + f + ", " + value + ", " + (a.reset_guard ? "1" : "0") + ", " + writable + ")";
  return " " + f + " = " + expr;
}

}  // namespace

void guarded_update(Archive& a, const std::string& table, const std::string& update_set,
                    const std::string& condition, const std::vector<Variant>& params) {
  // OR FAIL: a flag update cannot break a constraint, and without the need to undo half a
  // statement SQLite keeps no statement journal.
  std::string head = "update " + table + " set";
  std::string update = update_set;
  std::optional<std::string> flags;
  if (update_set.size() > head.size() &&
      archive::same_name(update_set.substr(0, head.size()), head))
    flags = flag_assignment(a, table, update_set.substr(head.size()));
  if (flags) update = head + *flags;
  update = "update or fail" + update.substr(std::string("update").size());
  if (!a.reset_guard || a.reset_guard->table != table) {
    a.execute(update + " where " + condition, params);
    return;
  }
  const auto& rows = a.reset_guard->rows;
  // A guarded flag write only clears flags: held ones are written together later.
  if (flags && a.held_resets.keep(table, update, condition, params, rows)) return;
  a.guard_left += guarded_write(a, table, update, condition, params, rows);
}

long guarded_write(Archive& a, const std::string& table, const std::string& update,
                   const std::string& condition, const std::vector<Variant>& params,
                   const std::vector<std::pair<int64_t, int64_t>>& rows) {
  // "<update> where (<condition>) and ((rowid = ?n and ROW_VERSION = ?m) or …)", written once
  // per reset: built in one buffer.
  std::string sql;
  sql.reserve(update.size() + condition.size() + 48 * rows.size() + 16);
  sql.append(update).append(" where (").append(condition).append(") and (");
  std::vector<Variant> p(params);
  p.reserve(params.size() + 2 * rows.size());
  for (auto [id, version] : rows) {
    if (p.size() > params.size()) sql += " or ";
    sql.append("(rowid = ?").append(std::to_string(p.size() + 1));
    sql.append(" and ROW_VERSION = ?").append(std::to_string(p.size() + 2)).append(")");
    p.emplace_back(static_cast<long long>(id));
    p.emplace_back(static_cast<long long>(version));
  }
  sql += ")";
  // Rows of the condition the guard does not hold (added since) are counted as left alone too.
  long all = a.query("select count(*) as n from " + table + " where (" + condition + ")", params)
                 ->Fields("n")
                 .to_int32();
  long updated = rows.empty() ? 0 : a.execute(sql, p);
  return std::max<long>(all, static_cast<long>(rows.size())) - updated;
}

std::string clsDbAccess::location() const {
  if (!archive_) raise(automation::kObjectNotSet);
  return archive_->path();
}

void clsDbAccess::begin_read() {
  archive().begin(false);
}
void clsDbAccess::end_read() {
  archive().end(true);
}
void clsDbAccess::begin_write() {
  archive().begin(true);
}
void clsDbAccess::commit() {
  archive().end(true);
}
void clsDbAccess::rollback() {
  archive().end(false);
}

std::vector<int32_t> clsDbAccess::record_ids(RecordGroup g, int32_t dept, int32_t scale,
                                             int32_t line, std::vector<std::string>* problems) {
  const archive::Table& t = group_table(g);
  std::string id(t.record_id);
  std::string sql = "select distinct " + id + " from " + std::string(t.name) + " where " +
                    std::string(t.department) + " = ?";
  std::vector<Variant> params{dept};
  if (g == RecordGroup::KeyBlock) {
    sql += " and TP_SCALE = ?";
    params.emplace_back(scale);
  }
  if (line > 0) {
    sql += " and substr(" + std::string(t.flags) + ", ?, 1) = '1'";
    params.emplace_back(line);
  }
  auto rs = archive().query(sql + " order by 1", params);
  std::vector<int32_t> ids;
  for (; !rs->Eof(); rs->MoveNext()) {
    Variant v = rs->Fields(id);
    if (v.type() != automation::VarType::Long && v.type() != automation::VarType::Integer) {
      if (problems)
        problems->push_back(std::string(t.name) + ": a row of department " + std::to_string(dept) +
                            " has " + id + " = " + v.to_text() +
                            ", not a 32-bit whole number; its record is left out");
      continue;
    }
    int32_t n = v.to_int32();
    if (g == RecordGroup::KeyBlock) n = static_cast<int32_t>((n - 1L) / kKeysPerBlock);
    if (ids.empty() || ids.back() != n) ids.push_back(n);
  }
  return ids;
}

RecordsetPtr clsDbAccess::group_rows(const GroupRef& ref) {
  GroupSql g = group_sql(ref);
  return archive().query(
      "select rowid as ROW_ID, * from " + g.table + " where " + g.condition + " order by rowid",
      g.params);
}

std::map<int32_t, GroupState> clsDbAccess::group_states(const GroupRef& scope, int32_t first,
                                                        int32_t last, int32_t line) {
  const archive::Table& t = group_table(scope.group);
  Archive& a = archive();
  std::string id(t.record_id);
  bool blocks = scope.group == RecordGroup::KeyBlock;
  std::string sql = "select " + id + " as ID, rowid as ROW_ID, ROW_VERSION, " + a.suspect_sql(t) +
                    " as SUSPECT, CASE WHEN substr(" + std::string(t.flags) +
                    ", ?, 1) = '1' THEN 1 ELSE 0 END as PENDING from " + std::string(t.name) +
                    " where " + std::string(t.department) + " = ?";
  std::vector<Variant> params{line, scope.dept};
  if (blocks) {
    sql += " and TP_SCALE = ?";
    params.emplace_back(scope.scale);
  }
  // The ids' values in the id column: a block's keys, as group_sql selects them.
  auto low = [&](int64_t n) { return blocks ? first_key(n) : n; };
  auto high = [&](int64_t n) { return blocks ? last_key(n) : n; };
  sql += " and " + id + " between ? and ?";
  params.emplace_back(static_cast<long long>(low(first)));
  params.emplace_back(static_cast<long long>(high(last)));
  // The records of these groups are built next: their reads are served by one read.
  if (a.in_read_transaction()) expect_rows(scope, first, last);
  std::map<int32_t, GroupState> states;
  a.each_row(sql, params, [&](std::vector<Variant>& row) {
    // ID, ROW_ID, ROW_VERSION, SUSPECT, PENDING. The record a row belongs to, by the same
    // comparison the group's own read makes: a value that is no number, or falls between two
    // records, belongs to none.
    if (!row[0].is_numeric_type()) return;
    double d = row[0].to_double();
    double n = blocks ? std::floor((d - 1) / kKeysPerBlock) : d;
    if (n < first || n > last || d < static_cast<double>(low(static_cast<int64_t>(n))) ||
        d > static_cast<double>(high(static_cast<int64_t>(n))))
      return;
    GroupState& s = states[static_cast<int32_t>(n)];
    if (s.rows.table.empty()) s.rows.table = t.name;
    s.rows.rows.emplace_back(static_cast<int64_t>(row[1].to_double()),
                             static_cast<int64_t>(row[2].to_double()));
    s.suspect = s.suspect || row[3].to_double() != 0;
    s.pending = s.pending || row[4].to_double() != 0;
  });
  for (auto& [n, s] : states) std::sort(s.rows.rows.begin(), s.rows.rows.end());
  return states;
}

void clsDbAccess::expect_rows(const GroupRef& scope, int32_t first, int32_t last) {
  Archive& a = archive();
  if (!a.batched) return;
  bool blocks = scope.group == RecordGroup::KeyBlock;
  a.batch_reads.expect(group_table(scope.group).name, scope.dept, blocks ? first_key(first) : first,
                       blocks ? last_key(last) : last);
}

long clsDbAccess::guard_resets(const RowSnapshot* guard) {
  Archive& a = archive();
  long left = a.guard_left;
  a.guard_left = 0;
  if (guard) {
    a.reset_guard = *guard;
    if (a.held_resets.holding()) a.held_resets.next_guard();
  } else {
    a.reset_guard.reset();
  }
  return left;
}

bool clsDbAccess::hold_resets() {
  Archive& a = archive();
  if (!a.batched || !a.in_transaction() || a.in_read_transaction()) return false;
  a.held_resets.start();
  return true;
}

void clsDbAccess::expect_resets(const GroupRef& scope, int32_t first, int32_t last) {
  if (archive().held_resets.holding()) expect_rows(scope, first, last);
}

std::vector<long> clsDbAccess::write_held_resets() {
  return archive().held_resets.write(archive());
}

RecordsetPtr clsDbAccess::select_rows(const archive::Table& t, const Where& where) {
  std::vector<Variant> params;
  std::string cols;
  for (const auto& c : t.columns) cols += (cols.empty() ? "" : ", ") + std::string(c.name);
  return archive().query("select " + cols + " from " + std::string(t.name) +
                             where_sql(t, where, &params) + order_sql(t),
                         params);
}

RecordsetPtr clsDbAccess::row_versions(const archive::Table& t,
                                       const std::vector<std::string>& by) {
  column_of(t, archive::kRowVersionColumn);
  std::string cols;
  for (const auto& c : by) cols += (cols.empty() ? "" : ", ") + std::string(column_of(t, c).name);
  std::string group = cols.empty() ? "" : " group by " + cols + " order by " + cols;
  return archive().query("select " + cols + (cols.empty() ? "" : ", ") +
                             "count(*) as ROWS, max(ROW_VERSION) as VERSION from " +
                             std::string(t.name) + group,
                         {});
}

void clsDbAccess::insert_row(const archive::Table& t, const std::vector<std::string>& columns,
                             const std::vector<Variant>& values) {
  insert_rows(t, columns, {values});
}

void clsDbAccess::insert_rows(const archive::Table& t, const std::vector<std::string>& columns,
                              const std::vector<std::vector<Variant>>& rows) {
  std::vector<std::string> names;
  for (const auto& c : columns) names.emplace_back(column_of(t, c).name);
  Archive& a = archive();
  if (a.batched)
    a.insert_many(std::string(t.name), names, rows);
  else
    a.Archive::insert_many(std::string(t.name), names, rows);  // a prepared insert per row
}

void clsDbAccess::put_rows(const archive::Table& t, const std::vector<std::string>& columns,
                           const std::vector<std::vector<Variant>>& rows) {
  // "insert … values (…), (…) on conflict (key) do update": both databases say it alike. A
  // statement carries at most kRowsAtOnce rows, well below either's limit of parameters.
  constexpr std::size_t kRowsAtOnce = 500;
  Archive& a = archive();
  if (!a.batched || t.key.empty()) return ArchiveTools::put_rows(t, columns, rows);
  std::string names, key, update, marks;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    std::string c(column_of(t, columns[i]).name);
    names += (i ? ", " : "") + c;
    marks += i ? ", ?" : "(?";
    if (i < t.key.size())
      key += (i ? ", " : "") + c;
    else
      update += (update.empty() ? "" : ", ") + c + " = excluded." + c;
  }
  marks += ")";
  for (std::size_t at = 0; at < rows.size(); at += kRowsAtOnce) {
    std::size_t n = std::min(kRowsAtOnce, rows.size() - at);
    std::string sql = "insert into " + std::string(t.name) + " (" + names + ") values ";
    std::vector<Variant> params;
    params.reserve(n * columns.size());
    for (std::size_t i = 0; i < n; ++i) {
      sql += (i ? ", " : "") + marks;
      params.insert(params.end(), rows[at + i].begin(), rows[at + i].end());
    }
    a.execute(sql + " on conflict (" + key + ") do update set " + update, params);
  }
}

long clsDbAccess::update_rows(const archive::Table& t, const Where& where,
                              const std::vector<std::string>& columns,
                              const std::vector<Variant>& values) {
  std::string set;
  for (const auto& c : columns)
    set += (set.empty() ? "" : ", ") + std::string(column_of(t, c).name) + " = ?";
  std::vector<Variant> params = values;
  std::string w = where_sql(t, where, &params);
  return archive().execute("update " + std::string(t.name) + " set " + set + w, params);
}

long clsDbAccess::delete_rows(const archive::Table& t, const Where& where) {
  std::vector<Variant> params;
  std::string w = where_sql(t, where, &params);
  return archive().execute("delete from " + std::string(t.name) + w, params);
}

long clsDbAccess::mark_pending(const archive::Table& t, const Where& where,
                               const std::string& lines) {
  const archive::Column& f = column_of(t, t.flags);
  std::string name(f.name), padded = "(" + name + " || '" + std::string(f.flag_width, '0') + "')";
  std::string expr;
  for (int p = 1; p <= f.flag_width; ++p) {
    bool set = p <= static_cast<int>(lines.size()) && lines[p - 1] == '1';
    std::string now = "substr(" + padded + ", " + std::to_string(p) + ", 1)";
    std::string scope = set ? store_line_condition(archive(), t, p) : "";
    expr += (p > 1 ? " || " : "") + (!set ? now
                                     : scope.empty()
                                         ? std::string("'1'")
                                         : "CASE WHEN " + scope + " THEN '1' ELSE " + now + " END");
  }
  std::vector<Variant> params;
  std::string w = where_sql(t, where, &params);
  w += (w.empty() ? " where " : " and ") + name + " IS NOT (" + expr + ")";
  // Marked rows get a new version: a sync that built them before must not reset them.
  Archive& a = archive();
  Archive::Transaction tx(a);
  params.insert(params.begin(), Variant(static_cast<long long>(a.next_version())));
  long n = a.execute(
      "update " + std::string(t.name) + " set " + name + " = " + expr + ", ROW_VERSION = ?" + w,
      params);
  tx.commit();
  return n;
}

std::unique_ptr<ArchiveTools::Lock> clsDbAccess::lock_line(int32_t line, bool wait,
                                                           std::string* holder) {
  return archive().lock_line("", line, wait, holder);
}

std::unique_ptr<ArchiveTools::Lock> clsDbAccess::lock_store_line(const std::string& store,
                                                                 int32_t line, bool wait,
                                                                 std::string* holder) {
  // The name becomes part of a lock file's name: only a store's name is taken.
  std::string problem = archive::value_problem(
      *archive::find_column(*archive::find_table("SCALE_LINES"), "SL_STORE"), Variant(store));
  if (!problem.empty()) raise(automation::kInvalidProcedureCall, "the store " + problem);
  return archive().lock_line(store, line, wait, holder);
}

void clsDbAccess::limit_to_store(const std::optional<std::string>& store) {
  Archive& a = archive();
  if (!store) {
    a.store_limit.reset();
    return;
  }
  Archive::StoreLimit limit{*store, {}};
  auto rs = a.query("select SL_BNC, SL_LINE from SCALE_LINES where SL_STORE = ?1", {*store});
  for (; !rs->Eof(); rs->MoveNext()) {
    int32_t line = rs->Fields("SL_LINE").to_int32();
    if (line >= 1 && line <= 8)
      limit.departments[static_cast<std::size_t>(line - 1)].push_back(
          rs->Fields("SL_BNC").to_int32());
  }
  a.store_limit = std::move(limit);
}

void clsDbAccess::begin_new_archive(const std::string& database_file, bool replace) {
  new_archive_name_ = database_file;
  new_archive_target_ = locate(database_file);
  if (Archive::is_server(new_archive_target_)) {
    // A server's archive is made in one transaction that publishing commits.
    new_archive_path_ = new_archive_target_;
    archive_ = PgArchive::create(new_archive_target_, replace);
    return;
  }
  if (!replace && std::filesystem::exists(new_archive_target_))
    raise(automation::kFileAlreadyExists,
          "File already exists: the archive " + new_archive_target_ +
              " exists (use it from this folder with \"qkp init --join " + new_archive_target_ +
              "\", or replace it with --force)");
  new_archive_path_ = new_archive_target_ + ".new-" + std::to_string(::getpid());
  remove_database_files(new_archive_path_);
  try {
    archive_ = SqliteArchive::create(new_archive_path_);
  } catch (...) {
    remove_database_files(new_archive_path_);
    throw;
  }
}

void clsDbAccess::publish_new_archive() {
  if (new_archive_path_.empty() || !archive_) raise(automation::kObjectNotSet);
  if (Archive::is_server(new_archive_target_)) {
    archive_->end(true);
    new_archive_path_.clear();
    archive_.reset();
    forget_shared_archive(new_archive_target_);
    Initialize(Variant(new_archive_name_));
    return;
  }
  // The last connection's close folds the write-ahead log into the file, so the file alone is the
  // whole archive when it is renamed.
  archive_.reset();
  remove_database_files(new_archive_target_);
  std::error_code ec;
  std::filesystem::rename(new_archive_path_, new_archive_target_, ec);
  if (ec)
    raise(automation::kPathFileAccessError,
          "cannot put the new archive in place of " + new_archive_target_ + ": " + ec.message());
  new_archive_path_.clear();
  Initialize(Variant(new_archive_name_));
}

void clsDbAccess::upgrade_schema(const std::string& database_file) {
  auto a = Archive::open(locate(database_file), true);
  if (a->schema_version() < archive::kSchemaVersion) a->upgrade();
}

}  // namespace qk::companions
