#include "qk/clsAdvertisingMessage.h"

#include "automation/conversions.h"
#include "builders/text_message_format.h"
#include "frame/creation.h"
#include "frame/flags.h"
#include "frame/globals.h"
#include "frame/report_error.h"
#include "frame/tagged_message.h"

namespace qk {

namespace fmt = text_message_format;
using automation::Variant;

namespace {

constexpr const char* kClass = "clsAdvertisingMessage";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

// A Null field joins as "" (the host's & does the same).
std::string field(const automation::Recordset& rs, const char* column) {
  return rs.Fields(column).to_text();
}

using automation::mid;

}  // namespace

clsAdvertisingMessage::clsAdvertisingMessage() {
  run_creation_sequence(kClass, kStepsWithDatabase);
}

void clsAdvertisingMessage::InitializeGlobal() {
  // This trap names another class; the label is kept as it is.
  trap({"InitializeGlobal", "clsAbbinamentoTasti"}, [&] {
    list_ = db().p_ADVERTISING_objRetrieveGlobalData(counter_, 0);
    record_count_ = Variant(list_->RecordCount()).to_int16();
  });
}

Variant clsAdvertisingMessage::Protocol() {
  std::string r;
  trap(label("Get Protocol"), [&] { r = m_strProtocolO50(); });
  return Variant(r);
}

std::string clsAdvertisingMessage::m_strProtocolO50() {
  std::string result;
  trap(label("m_strProtocolO50"), [&] {
    if (!global_mode_.empty()) {
      if (!list_) automation::raise(automation::kObjectNotSet);
      if (list_->Eof()) return;
      list_->AbsolutePosition(cursor_);
      id_ = list_->Fields("Id").to_int32();
    } else {
      list_ = db().p_ADVERTISING_objRetrieveById(counter_, id_);
    }
    const auto& rec = *list_;
    using tagged_message::attribute;
    using tagged_message::quoted_attribute;
    std::string head = std::string(fmt::kAdOpen) + quoted_attribute(fmt::kId, std::to_string(id_)) +
                       quoted_attribute(fmt::kSource, fmt::kSourceValue);
    if (rec.Eof()) {
      result = head + attribute(fmt::kMode, fmt::kMissingMode);
      for (auto a : {fmt::kFile, fmt::kPersistence, fmt::kRepeat, fmt::kRate})
        result += quoted_attribute(a, "");
      for (const auto* pieces : {fmt::kText1, fmt::kText2})
        for (int i = 0; i < 4; ++i) result += quoted_attribute(pieces[i].name, "");
      result += fmt::kAdClose;
      return;
    }
    std::string texts[fmt::kAssociatedTexts];
    auto rs = db().p_MESSAGES_objRetrieveAssociatedMessages(counter_, rec.Fields("MSG_LNK_ID"));
    int n = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
      if (n >= fmt::kAssociatedTexts) automation::raise(automation::kSubscriptOutOfRange);
      texts[n++] = field(*rs, "MESSAGE");
    }
    std::string msg = head + quoted_attribute(fmt::kMode, field(rec, "Mode")) +
                      quoted_attribute(fmt::kFile, field(rec, "IM_FILE_NAME")) +
                      quoted_attribute(fmt::kPersistence, field(rec, "PERSISTENCE")) +
                      quoted_attribute(fmt::kRepeat, field(rec, "REPEAT")) +
                      quoted_attribute(fmt::kRate, field(rec, "Rate"));
    for (int t = 0; t < fmt::kAssociatedTexts; ++t)
      for (const auto& p : t == 0 ? fmt::kText1 : fmt::kText2)
        msg += quoted_attribute(p.name, mid(texts[t], p.start, p.length));
    result = msg + std::string(fmt::kAdClose);
  });
  return result;
}

std::string clsAdvertisingMessage::p_strFlagTrasm() {
  std::string result;
  trap(label("Get p_strFlagTrasm"), [&] {
    auto rs = db().p_ADVERTISING_objRetrieveById(counter_, id_);
    std::string stored = rs->Eof() ? "" : field(*rs, "FLAGTRASM");
    result = stored.empty() ? std::string(flags::kLineWidth, '0') : stored;
  });
  return result;
}

void clsAdvertisingMessage::p_ResetFlagTrasm(int32_t& lngLine) {
  trap(label("p_ResetFlagTrasm"), [&] {
    std::string f = p_strFlagTrasm();
    if (f.empty()) return;
    flags::mask_unconfigured(f, configured_, counter_, flags::kLineWidth);
    flags::clear_line(f, lngLine);
    db().p_ADVERTISING_UpdateFlagTrasm(counter_, id_, f);
  });
}

}  // namespace qk
