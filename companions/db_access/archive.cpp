#include "db_access/archive.h"

#include <atomic>

#include "db_access/pg_archive.h"
#include "db_access/sqlite_archive.h"

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
  if (is_server(location)) return PgArchive::open(location, any_version);
  return SqliteArchive::open(location, any_version);
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
