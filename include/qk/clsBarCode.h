// Barcode formats (table BARCODE) as type "18" records for the 3000 and 2000 series, with a
// cursor over the forms of a key and four-line transmission flags.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qk/export.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsBarCode {
 public:
  QK_MOVE_ONLY(clsBarCode);
  clsBarCode();

  // The barcode form (BC_FORM) the cursor stands on.
  std::string p_strForm() const { return form_; }
  void p_strForm(const std::string& v) { form_ = v; }
  // The department whose barcode forms are walked.
  automation::Variant p_varKey() const { return key_; }
  // Writing the key reloads its forms; a key without forms sets p_booEOF at once.
  void p_varKey(const automation::Variant& v);
  // The type "18" record of the current form; "" when the form has no record or fails.
  std::string p_strProtocol();
  // BC_FLAGTRASM of the form's record as stored, "0000" when there is none or it is empty.
  std::string p_strFlagTrasm();
  // Masks unconfigured lines (indexes 0 to 3); the database clears lngLine and stores.
  void p_ResetFlagTrasm(int32_t& lngLine);
  // The configured-lines array (department, line index 0..7), stored as given: copied when
  // written and when read.
  automation::Variant p_varConfiguredLines() const { return configured_.copied(); }
  void p_varConfiguredLines(const automation::Variant& v) { configured_ = v.copied(); }
  // True once the cursor went past the last form.
  bool p_booEOF() const { return eof_; }
  // Puts the cursor on the key's first form.
  void p_MoveFirst();
  // Moves the cursor to the next form (p_booEOF after the last).
  void p_MoveNext();

 private:
  void m_LoadForm();

  std::string form_;
  automation::Variant key_, configured_;
  std::vector<std::string> forms_{""};  // the forms of the key, then one empty element
  int16_t cursor_ = 0;
  bool eof_ = false;
};

}  // namespace qk
