// Logos for the Kestra model: one type "40" record per pixel row (96 hexadecimal digits, wider
// rows cut, narrower ones zero-filled) and the end record "999". Index 1 upwards. A refused
// bitmap is reported and gives no records.
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/string_array.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsImageKestra {
 public:
  QK_MOVE_ONLY(clsImageKestra);
  clsImageKestra();

  // The image type (stored only).
  int32_t p_lngType() const { return type_; }
  void p_lngType(int32_t v) { type_ = v; }
  // The description (stored only).
  std::string p_strDescription() const { return description_; }
  void p_strDescription(const std::string& v) { description_ = v; }
  // The validity start (stored only).
  std::string p_strFromDate() const { return from_; }
  void p_strFromDate(const std::string& v) { from_ = v; }
  // The validity end (stored only).
  std::string p_strToDate() const { return to_; }
  void p_strToDate(const std::string& v) { to_ = v; }
  // The file name (stored only).
  std::string p_strFileName() const { return file_name_; }
  void p_strFileName(const std::string& v) { file_name_ = v; }
  // The image number, two digits in every record.
  automation::Variant p_varKey() const { return key_; }
  void p_varKey(const automation::Variant& v) { key_ = v; }
  // Where the 1-bit bitmap is read from.
  std::string p_strFullPath() const { return path_; }
  void p_strFullPath(const std::string& v) { path_ = v; }
  // The counter (department) number (stored only).
  int32_t p_lngBanco() const { return banco_; }
  void p_lngBanco(int32_t v) { banco_ = v; }
  // One record per bitmap row in hexadecimal, then the end record "…999".
  automation::StringArray p_strProtocol();

 private:
  // The row texts of a bitmap, index 1 upwards (unallocated when refused).
  automation::StringArray m_strBitmap(const std::string& path);

  int32_t type_ = 0, banco_ = 0;
  std::string description_, from_, to_, file_name_, path_;
  automation::Variant key_;
};

}  // namespace qk
