// Totals requests per article (table ARTICOLI) for the 2000 series. No error trap.
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsTotals {
 public:
  QK_MOVE_ONLY(clsTotals);
  clsTotals();
  // "C" or "G": every article of the counter; "V": only articles flagged for some line.
  void Mode(std::string& v) { mode_ = v; }
  // 255 means every counter.
  void Counter(int16_t& v) { counter_ = v; }
  std::string Protocol2000();
  int16_t RecordCount() const;
  void CursorPosition(int16_t& v);
  automation::Variant Initialize();

 private:
  std::string mode_;
  int16_t counter_ = 0;
  automation::RecordsetPtr rs_;
};

}  // namespace qk
