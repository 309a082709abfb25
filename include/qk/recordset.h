// The recordset contract the component relies on, and an in-memory implementation that the
// companions fill (and tests build by hand).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qk/export.h"
#include "qk/variant.h"

namespace qk::automation {

class QK_API Recordset : public Object {
 public:
  Recordset() = default;
  QK_NOT_COPIED(Recordset);
  // EOF of the contract (the name EOF is taken by the C library's macro).
  virtual bool Eof() const = 0;
  virtual void MoveNext() = 0;
  virtual void MoveFirst() = 0;
  virtual long RecordCount() const = 0;
  // Jumps to the 1-based record n; outside 1..RecordCount raises error 3021.
  virtual void AbsolutePosition(long n) = 0;
  // The value of a column of the current record (case-insensitive name). At EOF raises 3021;
  // an unknown column raises 3265. A child recordset comes back as an Object value.
  virtual Variant Fields(std::string_view name) const = 0;
  Variant operator()(std::string_view name) const { return Fields(name); }
};
using RecordsetPtr = std::shared_ptr<Recordset>;

// A result's column names and their lookup, made once and shared by the recordsets of one
// statement.
class QK_API ColumnNames {
 public:
  QK_COPYABLE(ColumnNames);
  explicit ColumnNames(std::vector<std::string> names);
  const std::vector<std::string>& names() const { return names_; }
  std::size_t size() const { return names_.size(); }
  // The position of the first column of that name, spelled exactly or else in another letter
  // case; -1 when there is none.
  long find(std::string_view name) const;

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
  };
  std::vector<std::string> names_;
  std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>> exact_;
};

class QK_API MemoryRecordset : public Recordset {
 public:
  QK_NOT_COPIED(MemoryRecordset);
  explicit MemoryRecordset(std::vector<std::string> columns);
  // Recordsets of one statement share its column names.
  explicit MemoryRecordset(std::shared_ptr<const ColumnNames> columns);

  void add_row(std::vector<Variant> row);
  // Moves the row's values in and leaves `row` empty, its storage kept for the next row.
  void take_row(std::vector<Variant>& row);
  const std::vector<std::string>& columns() const { return columns_->names(); }

  bool Eof() const override { return position_ >= rows_; }
  void MoveNext() override;
  void MoveFirst() override { position_ = 0; }
  long RecordCount() const override { return static_cast<long>(rows_); }
  void AbsolutePosition(long n) override;
  Variant Fields(std::string_view name) const override;

 private:
  std::shared_ptr<const ColumnNames> columns_;
  std::vector<Variant> cells_;  // row after row
  std::size_t rows_ = 0;
  std::size_t position_ = 0;
};

}  // namespace qk::automation
