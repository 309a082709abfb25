// Keyboard key bindings (table TASTIERA_PLU) for the 3000 series (type "35" blocks of 15 keys),
// the 5000 series ("<MSG OPE=NEW TYP=TAS" per key) and the 2000 series ("A000" records), one key
// at a time or walking every key of a department, with the flag members of the three forms.
// Every member traps its errors: a failing build reports and returns "".
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsAbbinamentoTasti {
 public:
  QK_MOVE_ONLY(clsAbbinamentoTasti);
  // Creation sequence with the database and the "Silent" setting.
  clsAbbinamentoTasti();

  // Loads the department's keys for the global walk and sets RecordCount.
  void InitializeGlobal();
  // The scale number, a string read as a number.
  std::string p_strScale() const { return scale_; }
  void p_strScale(const std::string& v) { scale_ = v; }
  // Moves the global walk to its record at this index (from 0).
  void CursorPosition(int16_t v) { cursor_ = v; }
  // Any text the host reads as a boolean ("True", "1", "-1", "False", "0").
  void GlobalMode(const std::string& v);
  // How many keys InitializeGlobal loaded for the global walk.
  int16_t RecordCount() const { return record_count_; }
  // The key number, a string read as a number (the global walk writes it too).
  std::string p_strScaleKey() const { return key_; }
  void p_strScaleKey(const std::string& v) { key_ = v; }
  // The served line, 1 to 8.
  int16_t p_intLine() const { return line_; }
  void p_intLine(int16_t v) { line_ = v; }
  // The department (its number) whose keys are read.
  automation::Variant p_varKey() const { return dept_; }
  void p_varKey(const automation::Variant& v) { dept_ = v; }
  // One "<MSG OPE=NEW TYP=TAS" message for the key (or the walk's current key).
  std::string p_strProtocolO50();
  // The type "35" record of the key's block of 15.
  std::string p_strProtocol();
  // Numeric reset: masks unconfigured lines; the database clears lngLine on the block's rows.
  void p_ResetFlagTrasm(int32_t& lngLine);
  // 5000-series reset: clears lngLine and writes the merged flags back to every row of the key.
  void p_ResetFlagTrasm50(int32_t& lngLine);
  // Merged flags of the key (every row of it), as the 5000 series reads them.
  std::string p_strFlagTrasm50();
  // Merged flags of the key's block (the rows the type "35" record is built from).
  std::string p_strFlagTrasm();
  // The configured-lines array (department, line index 0..7), stored as given: copied when
  // written and when read.
  automation::Variant p_varConfiguredLines() const { return configured_.copied(); }
  void p_varConfiguredLines(const automation::Variant& v) { configured_ = v.copied(); }
  // 2000-series reset: clears lngLine on the key's rows (unconfigured lines masked).
  void p_ResetFlagTrasm20(int32_t& lngLine);
  // One 2000-series record for the key (or the walk's current key).
  std::string p_strProtocolO20();
  // Merged flags of the key, as the 2000 series reads them.
  std::string p_strFlagTrasm20();

 private:
  struct Row {
    bool found = false;
    long key = 0;
    std::string value;
    std::string mode;
    bool bound = false;  // bound to the served line
  };
  // The row of the key for the 5000/2000 forms: the walk's current key or the addressed key.
  Row m_selectRow(long* key);
  std::string m_strGroupByBlockNumber(long key);
  bool m_lineBitSet(const automation::Variant& lines) const;
  std::string m_key_flags_query() const;
  void m_reset_single(int32_t& lngLine, bool o50);

  std::string scale_, key_;
  int16_t cursor_ = 0;
  bool global_ = false;
  int16_t record_count_ = 0;
  int16_t line_ = 0;
  automation::Variant dept_, configured_;
  automation::RecordsetPtr global_rs_;
  std::string block_flags_;  // flags of the block's most pending row; kept, never read back
};

}  // namespace qk
