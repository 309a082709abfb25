// Electronic texts (table ETEXT) as "<MSG TYP=TXT2 OPE=NEW" messages for the 5000 series, always
// from the global list. No creation sequence: it uses the database object an earlier class
// created on this thread.
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsEText {
 public:
  clsEText() = default;
  QK_MOVE_ONLY(clsEText);
  // Loads the global list of texts and sets RecordCount.
  void InitializeGlobal();
  // How many texts InitializeGlobal loaded.
  int16_t RecordCount() const { return record_count_; }
  // Moves the global list to its text at this index (from 0).
  void CursorPosition(int16_t v) { cursor_ = v; }
  // Stored only: the class always works on the global list.
  void GlobalMode(bool v) { global_mode_ = v; }
  // The counter (department) number, written as the REP value.
  int32_t Counter() const { return counter_; }
  void Counter(int32_t& v) { counter_ = v; }
  // The "<MSG TYP=TXT2 OPE=NEW" message of the text at CursorPosition ("" past the end).
  automation::Variant Protocol();

 private:
  int16_t record_count_ = 0, cursor_ = 0;
  bool global_mode_ = false;
  int32_t counter_ = 0;
  automation::RecordsetPtr list_;
};

}  // namespace qk
