#include "qk/clsEText.h"

#include "automation/conversions.h"
#include "frame/globals.h"
#include "frame/report_error.h"

namespace qk {

using automation::Variant;

namespace {
constexpr const char* kClass = "clsEText";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}
}  // namespace

void clsEText::InitializeGlobal() {
  trap(label("InitializeGlobal"), [&] {
    list_ = db().p_ETEXT_objRetrieveDistinctGlobalData(0, 0, counter_);
    record_count_ = Variant(list_->RecordCount()).to_int16();
  });
}

Variant clsEText::Protocol() {
  std::string result;
  trap(label("m_strProtocolO50"), [&] {
    if (!list_) automation::raise(automation::kObjectNotSet);
    if (list_->Eof()) return;
    list_->AbsolutePosition(cursor_);
    int16_t id = list_->Fields("Id").to_int16();
    auto rows = db().p_ETEXT_objRetrieveRowsById(id, 0, counter_);
    std::string msg =
        "<MSG TYP=TXT2 OPE=NEW ID=" + std::to_string(id) + " REP=" + std::to_string(counter_);
    // Row texts are not escaped: a double quote in a text breaks its attribute, as accepted.
    for (; !rows->Eof(); rows->MoveNext()) {
      Variant d = rows->Fields("Descr");
      msg +=
          " T" + automation::format_digits(rows->Fields("Row"), "00") + "=\"" + d.to_text() + "\"";
    }
    result = msg + " />";
  });
  return Variant(result);
}

}  // namespace qk
