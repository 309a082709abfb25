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

  // The counter (department) number: the first key of every archive read.
  int32_t Counter() const { return counter_; }
  void Counter(int32_t& v) { counter_ = v; }
  // The advertising message number: the second key.
  int32_t Id() const { return id_; }
  void Id(int32_t& v) { id_ = v; }
  // The message of the record (the empty message when it does not exist; "" at the end of the
  // global list or after a reported error).
  automation::Variant Protocol();
  // Any non-empty text switches to the global list.
  void GlobalMode(const std::string& v) { global_mode_ = v; }
  // How many messages InitializeGlobal loaded for the global list.
  int16_t RecordCount() const { return record_count_; }
  // Moves the global list to its message at this index (from 0).
  void CursorPosition(int16_t v) { cursor_ = v; }
  // Loads the global list of messages and sets RecordCount.
  void InitializeGlobal();
  // The configured-lines array (department, line index 0..7), stored as given: copied when
  // written and when read.
  automation::Variant configuredLines() const { return configured_.copied(); }
  void configuredLines(const automation::Variant& v) { configured_ = v.copied(); }
  // Clears lngLine in the message's flags (unconfigured lines masked).
  void p_ResetFlagTrasm(int32_t& lngLine);
  // The message's transmission flags as stored ("1" where a line still waits).
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
