// The recordset contract the component relies on, and an in-memory implementation that the
// companions fill (and tests build by hand).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qk/variant.h"

namespace qk::automation {

class Recordset : public Object {
 public:
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

class MemoryRecordset : public Recordset {
 public:
  explicit MemoryRecordset(std::vector<std::string> columns);
  // Recordsets of one statement can share its column names.
  explicit MemoryRecordset(std::shared_ptr<const std::vector<std::string>> columns);

  void add_row(std::vector<Variant> row);
  // Moves the row's values in and leaves `row` empty, its storage kept for the next row.
  void take_row(std::vector<Variant>& row);
  const std::vector<std::string>& columns() const { return *columns_; }

  bool Eof() const override { return position_ >= rows_; }
  void MoveNext() override;
  void MoveFirst() override { position_ = 0; }
  long RecordCount() const override { return static_cast<long>(rows_); }
  void AbsolutePosition(long n) override;
  Variant Fields(std::string_view name) const override;

 private:
  std::shared_ptr<const std::vector<std::string>> columns_;
  std::vector<Variant> cells_;  // row after row
  std::size_t rows_ = 0;
  std::size_t position_ = 0;
};

}  // namespace qk::automation
