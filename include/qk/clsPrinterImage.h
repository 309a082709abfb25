// Logos for the scale's label printer: 1026-byte frames (1024 data bytes and a two-byte
// checksum, high byte first), index 1 upwards, at least 23 of them. No size limit. A refused
// bitmap gives an unallocated array.
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/string_array.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsPrinterImage {
 public:
  QK_MOVE_ONLY(clsPrinterImage);
  // Loads the translations only: the settings store must have been created on this thread.
  clsPrinterImage();

  // Where the 1-bit bitmap is read from.
  std::string p_strFullPath() const { return path_; }
  void p_strFullPath(const std::string& v) { path_ = v; }
  // The image key (stored only).
  automation::Variant p_varKey() const { return key_; }
  void p_varKey(const automation::Variant& v) { key_ = v; }
  // The printer frames of the bitmap, index 1 upwards.
  automation::StringArray p_strProtocol();
  // Whether the file passes the header check (the refusal notice is shown).
  bool p_booImageIsValid();

 private:
  std::string path_;
  automation::Variant key_;
};

}  // namespace qk
