// Advertising messages (tables ADVERTISING and MESSAGES) as "<MSG OPE=NEW TYP=MSG" messages for
// the 5000 series, one record by Id or walking the global list, with eight-line flags.
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsAdvertisingMessage {
 public:
  QK_MOVE_ONLY(clsAdvertisingMessage);
  clsAdvertisingMessage();

  int32_t Counter() const { return counter_; }
  void Counter(int32_t& v) { counter_ = v; }
  int32_t Id() const { return id_; }
  void Id(int32_t& v) { id_ = v; }
  // The message of the record (the empty message when it does not exist; "" at the end of the
  // global list or after a reported error).
  automation::Variant Protocol();
  // Any non-empty text switches to the global list.
  void GlobalMode(const std::string& v) { global_mode_ = v; }
  int16_t RecordCount() const { return record_count_; }
  void CursorPosition(int16_t v) { cursor_ = v; }
  void InitializeGlobal();
  // Stored as given: a copy made when it is written, and a copy handed back.
  automation::Variant configuredLines() const { return configured_.copied(); }
  void configuredLines(const automation::Variant& v) { configured_ = v.copied(); }
  void p_ResetFlagTrasm(int32_t& lngLine);
  std::string p_strFlagTrasm();

 private:
  std::string m_strProtocolO50();

  int32_t counter_ = 0, id_ = 0;
  std::string global_mode_;
  int16_t record_count_ = 0, cursor_ = 0;
  automation::Variant configured_;
  automation::RecordsetPtr list_;
};

}  // namespace qk
