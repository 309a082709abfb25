#include "db_access/archive.h"

#include <atomic>
#include <cstdlib>

#include "db_access/pg_archive.h"
#include "db_access/sqlite_archive.h"
#include "qk/archive_schema.h"
#include "qk/error.h"

namespace qk::companions {

namespace {
std::atomic<bool> g_read_only{false};
}  // namespace

bool read_only_requested() {
  return g_read_only;
}

void request_read_only(bool read_only) {
  g_read_only = read_only;
}

bool Archive::is_server(const std::string& location) {
  return location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0;
}

std::shared_ptr<Archive> Archive::open(const std::string& location, bool any_version) {
  auto a = is_server(location) ? PgArchive::open(location, any_version)
                               : SqliteArchive::open(location, any_version);
  const char* batches = std::getenv("QK_ARCHIVE_BATCHES");
  a->batched = !batches || std::string(batches) != "off";
  return a;
}

void Archive::check_schema(bool any_version) {
  int version = schema_version();
  std::string found = std::to_string(version), needed = std::to_string(archive::kSchemaVersion);
  if (version > archive::kSchemaVersion)
    automation::raise(automation::kDatabaseError, "the archive " + path_ + " has schema version " +
                                                      found + ", newer than this version knows (" +
                                                      needed + "): use a newer qkp");
  if (any_version) return;
  if (version < archive::kSchemaVersion)
    automation::raise(automation::kDatabaseError,
                      "the archive " + path_ + " has schema version " + found +
                          ", this version needs " + needed +
                          ": run \"qkp archive upgrade\" (every row is kept)");
  for (const auto& t : archive::tables())
    if (!has_table(std::string(t.name)))
      automation::raise(automation::kDatabaseError,
                        "the archive " + path_ + " has no table " + std::string(t.name));
}

void Archive::insert_many(const std::string& table, const std::vector<std::string>& columns,
                          const std::vector<std::vector<Variant>>& rows) {
  std::string cols, marks;
  for (const auto& c : columns) {
    cols += (cols.empty() ? "" : ", ") + c;
    marks += marks.empty() ? "?" : ", ?";
  }
  std::string sql = "insert into " + table + " (" + cols + ") values (" + marks + ")";
  for (const auto& row : rows) execute(sql, row);
}

void Archive::each_row(const std::string& sql, const std::vector<Variant>& params,
                       const std::function<void(std::vector<Variant>&)>& each) {
  auto rs = query(sql, params);
  std::vector<Variant> row;
  for (; !rs->Eof(); rs->MoveNext()) {
    row.clear();
    for (const auto& c : rs->columns()) row.push_back(rs->Fields(c));
    each(row);
  }
}

Archive::Transaction::Transaction(Archive& a) : archive_(a) {
  joined_ = archive_.in_transaction();
  if (!joined_) archive_.begin(true);
}

Archive::Transaction::~Transaction() {
  if (!done_ && !joined_) {
    try {
      archive_.end(false);
    } catch (...) {
      // Rolling back after a failure: the failure is what is reported.
    }
  }
}

void Archive::Transaction::commit() {
  if (!joined_) archive_.end(true);
  done_ = true;
}

}  // namespace qk::companions
