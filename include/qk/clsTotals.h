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
  // The totals request of the current article, "" past the last one.
  std::string Protocol2000();
  // How many articles Initialize read.
  int16_t RecordCount() const;
  // Moves to the article at this index (from 0).
  void CursorPosition(int16_t& v);
  // Runs the query of the counter's articles in the mode and keeps the rows.
  automation::Variant Initialize();

 private:
  std::string mode_;
  int16_t counter_ = 0;
  automation::RecordsetPtr rs_;
};

}  // namespace qk
