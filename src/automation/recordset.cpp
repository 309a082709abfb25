#include "qk/recordset.h"

#include <cctype>

#include "qk/error.h"

namespace qk::automation {

namespace {
bool same_name(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}
}  // namespace

ColumnNames::ColumnNames(std::vector<std::string> names) : names_(std::move(names)) {
  for (std::size_t i = 0; i < names_.size(); ++i) exact_.emplace(names_[i], i);  // first wins
}

long ColumnNames::find(std::string_view name) const {
  // Callers mostly spell names as the columns do.
  if (auto it = exact_.find(name); it != exact_.end()) return static_cast<long>(it->second);
  for (std::size_t i = 0; i < names_.size(); ++i)
    if (same_name(names_[i], name)) return static_cast<long>(i);
  return -1;
}

MemoryRecordset::MemoryRecordset(std::vector<std::string> columns)
    : columns_(std::make_shared<const ColumnNames>(std::move(columns))) {}

MemoryRecordset::MemoryRecordset(std::shared_ptr<const ColumnNames> columns)
    : columns_(std::move(columns)) {}

void MemoryRecordset::add_row(std::vector<Variant> row) {
  take_row(row);
}

void MemoryRecordset::take_row(std::vector<Variant>& row) {
  // A short row is filled with Empty values, a long one cut to the columns.
  row.resize(columns_->size());
  cells_.insert(cells_.end(), std::make_move_iterator(row.begin()),
                std::make_move_iterator(row.end()));
  row.clear();
  ++rows_;
}

void MemoryRecordset::MoveNext() {
  if (Eof()) raise(kNoCurrentRecord);
  ++position_;
}

void MemoryRecordset::AbsolutePosition(long n) {
  if (n < 1 || n > RecordCount()) raise(kNoCurrentRecord);
  position_ = static_cast<std::size_t>(n - 1);
}

Variant MemoryRecordset::Fields(std::string_view name) const {
  long i = columns_->find(name);
  if (i < 0) raise(kItemNotFound);
  if (Eof()) raise(kNoCurrentRecord);
  return cells_[position_ * columns_->size() + static_cast<std::size_t>(i)];
}

}  // namespace qk::automation
