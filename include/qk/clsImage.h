// Logos for the numeric-record scales: a 1-bit bitmap becomes compressed, escaped type "40"
// records (index 0 the description record, then one record per chunk). A refused or missing
// file gives the single placeholder record "Immagine #<key>"; other errors are reported and
// leave the array as built so far (normally empty).
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/string_array.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsImage {
 public:
  QK_MOVE_ONLY(clsImage);
  clsImage();

  // The description, written into the first record (16 characters at most).
  std::string p_strDescription() const { return description_; }
  void p_strDescription(const std::string& v) { description_ = v; }
  // The validity start, written as given into the first record.
  std::string p_strFromDate() const { return from_; }
  void p_strFromDate(const std::string& v) { from_ = v; }
  // The validity end, written as given into the first record.
  std::string p_strToDate() const { return to_; }
  void p_strToDate(const std::string& v) { to_ = v; }
  // The file name (stored only).
  std::string p_strFileName() const { return file_name_; }
  void p_strFileName(const std::string& v) { file_name_ = v; }
  // The image number; "0" asks for the empty image record.
  automation::Variant p_varKey() const { return key_; }
  void p_varKey(const automation::Variant& v) { key_ = v; }
  // Where the 1-bit bitmap is read from.
  std::string p_strFullPath() const { return path_; }
  void p_strFullPath(const std::string& v) { path_ = v; }
  // The counter (department) number (stored only).
  int32_t p_lngBanco() const { return banco_; }
  void p_lngBanco(int32_t v) { banco_ = v; }
  // The image type (stored only).
  int32_t p_lngType() const { return type_; }
  void p_lngType(int32_t v) { type_ = v; }
  // The image records: the description record, then the compressed bitmap in chunks.
  automation::StringArray p_strProtocol();
  // The escaped chunks of a compressed stream, index 1 upwards (unallocated when empty).
  automation::StringArray p_strTransmissionString(const std::string& text);

 private:
  // The compressed stream of a file with its 3-byte prefix; "" when refused.
  std::string m_strCompressBitmap(const std::string& path);
  // Feeds one byte to the run-length compressor, whose state the object keeps between calls.
  void m_CompressionEngine(unsigned char v, bool first, bool last);

  std::string description_, from_, to_, file_name_, path_;
  automation::Variant key_;
  int32_t banco_ = 0, type_ = 0;
  // The compressor's state: the previous byte (-1: none), the run so far, the output.
  int32_t previous_ = -1;
  int16_t run_count_ = 0;
  std::string compressed_;
};

}  // namespace qk
