// Traceability lots (table TRACEABILITY) for every family: the Velta block, the 3000TOP, 2000 and
// 3000 records and the 5000 message, the lot numbers of a department, and the lots' flags.
// Builders report errors (a missing or non-numeric lot among them) and return the empty result.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qk/collection.h"
#include "qk/export.h"
#include "qk/string_array.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsTraceability {
 public:
  QK_MOVE_ONLY(clsTraceability);
  clsTraceability();

  // The department whose lot is read.
  int32_t p_lngBnc() const { return bnc_; }
  void p_lngBnc(int32_t v) { bnc_ = v; }
  // The lot number (TRC_ID) whose records are built.
  std::string p_strTraceabilityId() const { return id_; }
  void p_strTraceabilityId(const std::string& v) { id_ = v; }
  // The lot as one Velta record.
  std::string p_strProtocol();
  // The lot as the six records of the 3000 TOP series.
  automation::StringArray p_3000TOP_strProtocol();
  // The lot as the thirteen records of the 2000 series.
  automation::StringArray p_2000_strProtocol();
  // The lot as the six records of the 3000 series.
  automation::StringArray p_3000_strProtocol();
  // The lot as one 5000-series message.
  std::string p_5000_strProtocol();
  // The lot numbers listed by the last p_RetrieveTraceabilityId (null before the first call).
  std::shared_ptr<automation::Collection> p_objNumberOfRecord();
  // Lists the department's lot numbers (only the pending ones when booVariated), keyed "0",
  // "1", …; recovers up to five times from a lost database (error 462).
  void p_RetrieveTraceabilityId(bool& booVariated);
  // The configured-lines array (department, line index 0..7), stored as given: copied when
  // written and when read.
  automation::Variant p_varConfiguredLines() const { return configured_.copied(); }
  void p_varConfiguredLines(const automation::Variant& v) { configured_ = v.copied(); }
  // Clears lngLine in the flags of every row of the lot (unconfigured lines masked).
  void p_ResetFlagTrasm(int32_t& lngLine);
  // Merged flags of the lot's rows ("1" where a line still waits).
  std::string p_strFlagTrasm();
  // The field formatter without a trap (mode 1 numeric, any other text).
  std::string FormattaCampo(std::string s, int16_t& iModo, int16_t& iLen);

 private:
  std::string m_VELTA_strProtocol();
  automation::StringArray m_3000TOP_strProtocol();
  automation::StringArray m_2000_strProtocol();
  automation::StringArray m_3000_strProtocol();
  std::string m_5000_strProtocol();
  int32_t lot_number() const;

  int32_t bnc_ = 0;
  std::string id_;
  std::shared_ptr<automation::Collection> numbers_;
  automation::Variant configured_;
  int recoveries_ = 0;
};

}  // namespace qk
