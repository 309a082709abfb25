#include "qk/clsAdvertisingMessage.h"

#include "builders/text_message_format.h"
#include "frame/creation.h"
#include "frame/flags.h"
#include "frame/globals.h"
#include "frame/report_error.h"

namespace qk {

namespace fmt = text_message_format;
using automation::Variant;

namespace {

constexpr const char* kClass = "clsAdvertisingMessage";
constexpr char kQuote = '"';
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

std::string quoted(const std::string& v) {
  return kQuote + v + kQuote;
}

// A Null field joins as "" (the host's & does the same).
std::string field(const automation::Recordset& rs, const char* column) {
  return rs.Fields(column).to_text();
}

// Mid(text, start, length): a start past the end gives "".
std::string mid(const std::string& s, std::size_t start, std::size_t length) {
  return start > s.size() ? "" : s.substr(start - 1, length);
}

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
    std::string head =
        "<MSG OPE=NEW TYP=MSG ID=" + quoted(std::to_string(id_)) + " SOR=" + quoted("2");
    if (rec.Eof()) {
      result = head + " TIP=0";
      for (const char* a : {" NOM=", " SEC=", " RIP=", " VEL="}) result += a + quoted("");
      for (const auto* pieces : {fmt::kText1, fmt::kText2})
        for (int i = 0; i < 4; ++i) result += std::string(pieces[i].name) + quoted("");
      result += "/>";
      return;
    }
    std::string texts[fmt::kAssociatedTexts];
    auto rs = db().p_MESSAGES_objRetrieveAssociatedMessages(counter_, rec.Fields("MSG_LNK_ID"));
    int n = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
      if (n >= fmt::kAssociatedTexts) automation::raise(automation::kSubscriptOutOfRange);
      texts[n++] = field(*rs, "MESSAGE");
    }
    std::string msg = head + " TIP=" + quoted(field(rec, "Mode")) +
                      " NOM=" + quoted(field(rec, "IM_FILE_NAME")) +
                      " SEC=" + quoted(field(rec, "PERSISTENCE")) +
                      " RIP=" + quoted(field(rec, "REPEAT")) + " VEL=" + quoted(field(rec, "Rate"));
    for (int t = 0; t < fmt::kAssociatedTexts; ++t)
      for (const auto& p : t == 0 ? fmt::kText1 : fmt::kText2)
        msg += std::string(p.name) + quoted(mid(texts[t], p.start, p.length));
    result = msg + "/>";
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
