#include "db_access/batch_reads.h"

#include <algorithm>

#include "db_access/archive.h"

namespace qk::companions {

using automation::Variant;

namespace {

std::string record_sql(const RecordRead& r, std::size_t scope_size, bool batch) {
  std::string sql = "select * from " + std::string(r.table) + " where " + std::string(r.scope) +
                    " and " + std::string(r.id);
  std::string next = "?" + std::to_string(scope_size + 1);
  std::string order(r.order);
  if (batch)
    return sql + " between " + next + " and ?" + std::to_string(scope_size + 2) + " order by " +
           std::string(r.id) + (order.empty() ? "" : ", " + order);
  return sql + " = " + next + (order.empty() ? "" : " order by " + order);
}

std::size_t scope_size(const RecordRead& r) {
  return static_cast<std::size_t>(std::count(r.scope.begin(), r.scope.end(), '?'));
}

bool same_values(const std::vector<Variant>& a, const std::vector<Variant>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].to_double() != b[i].to_double()) return false;
  return true;
}

}  // namespace

void BatchReads::expect(std::string_view table, int32_t dept, int64_t low, int64_t high) {
  clear();
  batch_ = Batch{std::string(table), dept, low, high};
}

void BatchReads::clear() {
  batch_.reset();
  forget_rows();
}

void BatchReads::forget_rows() {
  loaded_read_ = {};
  loaded_scope_.clear();
  names_.reset();
  rows_.clear();
}

automation::RecordsetPtr BatchReads::read(Archive& a, const RecordRead& r,
                                          const std::vector<Variant>& scope, const Variant& id) {
  double n = id.to_double();
  if (!from_batch(a, r, scope, n, n)) {
    std::vector<Variant> params = scope;
    params.push_back(id);
    return a.query(record_sql(r, scope.size(), false), params);
  }
  auto rs = std::make_shared<automation::MemoryRecordset>(names_);
  if (auto it = rows_.find(n); it != rows_.end())
    for (const auto& row : it->second) rs->add_row(row);
  return rs;
}

automation::RecordsetPtr BatchReads::read_statement(Archive& a, const std::string& sql,
                                                    const std::vector<Variant>& values) {
  static const std::string key_rows_of_department =
      record_sql(kKeyRowsOfDepartment, scope_size(kKeyRowsOfDepartment), false);
  if (values.size() != scope_size(kKeyRowsOfDepartment) + 1 || sql != key_rows_of_department)
    return nullptr;
  return read(a, kKeyRowsOfDepartment, {values.begin(), values.end() - 1}, values.back());
}

automation::RecordsetPtr BatchReads::read_range(Archive& a, const RecordRead& r,
                                                const std::vector<Variant>& scope, int64_t low,
                                                int64_t high) {
  if (!from_batch(a, r, scope, static_cast<double>(low), static_cast<double>(high))) {
    std::vector<Variant> params = scope;
    params.emplace_back(static_cast<long long>(low));
    params.emplace_back(static_cast<long long>(high));
    return a.query(record_sql(r, scope.size(), true), params);
  }
  // The rows by id, each id's in its own order: as "order by <id>, <order>" gives them.
  auto rs = std::make_shared<automation::MemoryRecordset>(names_);
  for (auto it = rows_.lower_bound(static_cast<double>(low));
       it != rows_.end() && it->first <= static_cast<double>(high); ++it)
    for (const auto& row : it->second) rs->add_row(row);
  return rs;
}

bool BatchReads::from_batch(Archive& a, const RecordRead& r, const std::vector<Variant>& scope,
                            double low, double high) {
  bool in_batch = batch_ && a.reads_batched() && batch_->table == r.table && !scope.empty() &&
                  scope.front().to_double() == batch_->dept &&
                  low >= static_cast<double>(batch_->low) &&
                  high <= static_cast<double>(batch_->high);
  if (!in_batch) return false;
  if (!names_ || loaded_read_ != r.scope || !same_values(loaded_scope_, scope)) {
    forget_rows();
    std::vector<Variant> params = scope;
    params.emplace_back(static_cast<long long>(batch_->low));
    params.emplace_back(static_cast<long long>(batch_->high));
    auto rs = a.query(record_sql(r, scope.size(), true), params);
    names_ = std::make_shared<const automation::ColumnNames>(rs->columns());
    const auto& columns = rs->columns();
    for (; !rs->Eof(); rs->MoveNext()) {
      // A row whose id is no number matches no record's own statement either.
      Variant row_id = rs->Fields(r.id);
      if (!row_id.is_numeric_type()) continue;
      std::vector<Variant> row;
      row.reserve(columns.size());
      for (const auto& c : columns) row.push_back(rs->Fields(c));
      rows_[row_id.to_double()].push_back(std::move(row));
    }
    loaded_read_ = r.scope;
    loaded_scope_ = scope;
  }
  return true;
}

}  // namespace qk::companions
