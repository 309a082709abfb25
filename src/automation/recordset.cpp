#include "qk/recordset.h"

#include <cctype>

#include "qk/error.h"

namespace qk::automation {

namespace {
std::string lower(std::string_view s) {
  std::string r(s);
  for (char& c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return r;
}
}  // namespace

MemoryRecordset::MemoryRecordset(std::vector<std::string> columns) : columns_(std::move(columns)) {
  for (std::size_t i = 0; i < columns_.size(); ++i) index_.emplace(lower(columns_[i]), i);
}

void MemoryRecordset::add_row(std::vector<Variant> row) {
  row.resize(columns_.size());
  rows_.push_back(std::move(row));
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
  auto it = index_.find(lower(name));
  if (it == index_.end()) raise(kItemNotFound);
  if (Eof()) raise(kNoCurrentRecord);
  return rows_[position_][it->second];
}

}  // namespace qk::automation
