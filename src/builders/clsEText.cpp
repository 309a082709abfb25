#include "qk/clsEText.h"

#include "automation/conversions.h"
#include "builders/text_message_format.h"
#include "frame/globals.h"
#include "frame/report_error.h"
#include "frame/tagged_message.h"

namespace qk {

using automation::Variant;
namespace fmt = text_message_format;

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
    std::string msg = std::string(fmt::kTextOpen) +
                      tagged_message::attribute(fmt::kId, std::to_string(id)) +
                      tagged_message::attribute(fmt::kCounter, std::to_string(counter_));
    // Row texts are not escaped: a double quote in a text breaks its attribute, as accepted.
    for (; !rows->Eof(); rows->MoveNext())
      msg += tagged_message::quoted_attribute(
          std::string(fmt::kRowPrefix) +
              automation::format_digits(rows->Fields("Row"), std::string(fmt::kRowDigits, '0')),
          rows->Fields("Descr").to_text());
    result = msg + std::string(tagged_message::kClose);
  });
  return Variant(result);
}

}  // namespace qk
