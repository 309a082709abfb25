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
  void InitializeGlobal();
  int16_t RecordCount() const { return record_count_; }
  void CursorPosition(int16_t v) { cursor_ = v; }
  void GlobalMode(bool v) { global_mode_ = v; }
  int32_t Counter() const { return counter_; }
  void Counter(int32_t& v) { counter_ = v; }
  automation::Variant Protocol();

 private:
  int16_t record_count_ = 0, cursor_ = 0;
  bool global_mode_ = false;
  int32_t counter_ = 0;
  automation::RecordsetPtr list_;
};

}  // namespace qk
