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

MemoryRecordset::MemoryRecordset(std::vector<std::string> columns)
    : columns_(std::make_shared<const std::vector<std::string>>(std::move(columns))) {}

MemoryRecordset::MemoryRecordset(std::shared_ptr<const std::vector<std::string>> columns)
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
  // A few dozen columns at most: a scan beats building an index for every result. Callers
  // mostly spell names as the columns do, so an exact match is tried first.
  const auto& columns = *columns_;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i] != name) continue;
    if (Eof()) raise(kNoCurrentRecord);
    return cells_[position_ * columns.size() + i];
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!same_name(columns[i], name)) continue;
    if (Eof()) raise(kNoCurrentRecord);
    return cells_[position_ * columns.size() + i];
  }
  raise(kItemNotFound);
}

}  // namespace qk::automation
