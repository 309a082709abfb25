#include "qk/clsTraceability.h"

#include "automation/conversions.h"
#include "builders/lot_format.h"
#include "config/clsConfigurationPrs.h"
#include "frame/creation.h"
#include "frame/flags.h"
#include "frame/globals.h"
#include "frame/modUtility.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"
#include "frame/tagged_message.h"
#include "qk/host.h"

namespace qk {

namespace fmt = lot_format;
using automation::Recordset;
using automation::RecordsetPtr;
using automation::Variant;

namespace {

constexpr const char* kClass = "clsTraceability";
constexpr char kQuote = '"';
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

// A Null column reads as "" (TRC_OPTIONAL and WCHARGED have their own defaults).
std::string text(const Recordset& rs, const std::string& column) {
  return rs.Fields(column).to_text();
}
// Description 1 to 20. The names are made once: a lot's message asks for them line after line.
std::string description(const Recordset& rs, int line) {
  static const auto names = [] {
    std::vector<std::string> v;
    for (int i = 1; i <= fmt::kDescriptionLines; ++i) v.push_back("TRC_DESC" + std::to_string(i));
    return v;
  }();
  return text(rs, names.at(static_cast<std::size_t>(line - 1)));
}

// "T01" … "T20" of the 5000 message.
const std::string& line_name(int n) {
  static const auto names = [] {
    std::vector<std::string> v;
    for (int i = 1; i <= fmt::k5000Lines + 1; ++i)
      v.push_back(std::string(fmt::k5000LinePrefix) +
                  automation::format_digits(i, std::string(fmt::k5000LineDigits, '0')));
    return v;
  }();
  return names.at(static_cast<std::size_t>(n - 1));
}

using automation::trim;

std::string formatted(const std::string& value, int width) {
  return modHelpers::p_strFormattaCampo(value, 0, static_cast<int16_t>(width));
}

}  // namespace

clsTraceability::clsTraceability() {
  run_creation_sequence(kClass, kStepsWithDatabase);
}

int32_t clsTraceability::lot_number() const {
  return Variant(id_).to_int32();
}

std::string clsTraceability::FormattaCampo(std::string s, int16_t& iModo, int16_t& iLen) {
  return modHelpers::p_strFormattaCampo(s, iModo, iLen);
}

std::string clsTraceability::p_strProtocol() {
  std::string r;
  trap(label("Get p_strProtocol"), [&] { r = m_VELTA_strProtocol(); });
  return r;
}
automation::StringArray clsTraceability::p_3000TOP_strProtocol() {
  automation::StringArray r;
  trap(label("Get p_3000Top_strProtocol"), [&] { r = m_3000TOP_strProtocol(); });
  return r;
}
automation::StringArray clsTraceability::p_2000_strProtocol() {
  automation::StringArray r;
  trap(label("Get p_2000_strProtocol"), [&] { r = m_2000_strProtocol(); });
  return r;
}
automation::StringArray clsTraceability::p_3000_strProtocol() {
  automation::StringArray r;
  trap(label("Get p_3000_strProtocol"), [&] { r = m_3000_strProtocol(); });
  return r;
}
std::string clsTraceability::p_5000_strProtocol() {
  std::string r;
  trap(label("Get p_5000_strProtocol"), [&] { r = m_5000_strProtocol(); });
  return r;
}

std::string clsTraceability::m_VELTA_strProtocol() {
  std::string result;
  trap(label("m_VELTA_strProtocol"), [&] {
    int32_t id = lot_number();
    RecordsetPtr rs = db().p_TRACEABILITY_objRetrieveRows(bnc_, Variant(id));
    if (rs->Eof()) {
      host::event_log(host::kEventInformation, "Il lotto: " + id_ + " \xE8 risultato inesistente");
      return;
    }
    std::string code = text(*rs, "TRC_ID_LOT");
    auto quoted = [](std::string_view v) { return kQuote + std::string(v) + kQuote; };
    auto line = [&](int n, std::string_view v) {
      return std::string(fmt::kVeltaLineOpen) + std::to_string(n) +
             std::string(fmt::kVeltaLineEquals) + quoted(v) + std::string(fmt::kVeltaLineClose);
    };
    // No line break after the first tag: T2 follows on the same line.
    std::string block = line(1, code);
    if (description(*rs, 1) == fmt::kDeleteMarker) {
      result =
          std::string(fmt::kVeltaDeleteOpen) + quoted(code) + std::string(fmt::kVeltaDeleteClose);
      return;
    }
    std::string key = code;
    for (; !rs->Eof(); rs->MoveNext())
      for (int i = 1; i <= fmt::kDescriptionLines; ++i)
        block += line(i + 1, trim(description(*rs, i))) + std::string(fmt::kCrLf);
    clsConfigurationPrs parameters;
    std::string name(fmt::kVeltaHeadsetParameter);
    if (parameters.RetrieveVeltaGeneralParameter(name) != "Y") key = std::to_string(id);
    result = std::string(fmt::kVeltaWriteOpen) + quoted(key) + std::string(fmt::kVeltaWriteKeyEnd) +
             std::string(fmt::kCrLf) + block + std::string(fmt::kVeltaWriteClose);
  });
  return result;
}

automation::StringArray clsTraceability::m_3000TOP_strProtocol() {
  auto records = automation::StringArray::sized(0, fmt::kTopRecords - 1);
  trap(label("m_3000TOP_strProtocol"), [&] {
    std::string p = numeric_record::header(numeric_record::kTraceabilityLot) +
                    automation::format_digits(Variant(id_), "000");
    int32_t id = lot_number();
    RecordsetPtr rs = db().p_TRACEABILITY_objRetrieveRows(bnc_, Variant(id));
    std::string code = text(*rs, "TRC_ID_LOT");
    std::string body = code.substr(0, fmt::kTopCodeWidth);
    body.resize(fmt::kTopCodeWidth, ' ');
    long total = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
      Variant opt = rs->Fields("TRC_OPTIONAL");
      int32_t optional = opt.is_null() ? 0 : opt.to_int32();
      for (int i = 1; i <= fmt::kDescriptionLines; ++i) {
        std::string d = trim(description(*rs, i).substr(0, fmt::kTopLineCut));
        total += static_cast<long>(d.size());
        int32_t bit = 1 << i;  // bit 0 of the mask is never used
        if (!d.empty() && (optional & bit) == bit) body += "%";
        body += d;
        if (!d.empty()) body += "#";
      }
    }
    // A lot without descriptions whose code is just its number is sent with a blank code.
    if (total == 0 && id == modUtility::p_lngNumericValue(code))
      body.replace(0, fmt::kTopCodeWidth, std::string(fmt::kTopCodeWidth, ' '));
    if (body.size() > fmt::kTopBodyCut) body.resize(fmt::kTopBodyCut);
    if (!body.empty() && body.back() == '%') body.pop_back();
    int16_t n = fmt::kTopPiece;
    automation::StringArray pieces = modUtility::m_strSplitString(body, n);
    if (pieces.size() >= 6 && body.size() > fmt::kTopFullPieces)
      pieces[5] += body.substr(body.size() - (fmt::kTopBodyCut - body.size()));
    for (int k = 0; k < fmt::kTopRecords; ++k)
      records[k] =
          p + std::to_string(k) + (k < static_cast<int>(pieces.size()) ? pieces[k] : std::string());
  });
  return records;
}

automation::StringArray clsTraceability::m_2000_strProtocol() {
  auto records = automation::StringArray::sized(0, fmt::k2000Lines);
  trap(label("m_2000_strProtocol"), [&] {
    std::string p = std::string(fmt::kPrefix2000) + automation::format_digits(Variant(id_), "00");
    RecordsetPtr rs = db().p_TRACEABILITY_objRetrieveRows(bnc_, Variant(lot_number()));
    records[0] = p + "00" + formatted(trim(text(*rs, "TRC_ID_LOT")), fmt::k2000Width);
    for (; !rs->Eof(); rs->MoveNext())  // a later row overwrites lines 1 to 12
      for (int i = 1; i <= fmt::k2000Lines; ++i)
        records[i] = p + automation::format_digits(i, 2) +
                     formatted(trim(description(*rs, i)), fmt::k2000Width);
  });
  return records;
}

automation::StringArray clsTraceability::m_3000_strProtocol() {
  auto records = automation::StringArray::sized(0, 5);
  trap(label("m_3000_strProtocol"), [&] {
    std::string p = numeric_record::header(numeric_record::kTraceabilityLot) +
                    automation::format_digits(Variant(id_), "000");
    RecordsetPtr rs = db().p_TRACEABILITY_objRetrieveRows(bnc_, Variant(lot_number()));
    for (int k = 0; k <= 5; ++k) {
      std::string value = k == 0 ? text(*rs, "TRC_ID_LOT") : description(*rs, k);
      records[k] = p + std::to_string(k) + formatted(value, fmt::k3000Widths[k]);
    }
  });
  return records;
}

std::string clsTraceability::m_5000_strProtocol() {
  std::string result;
  trap(label("m_5000_strProtocol"), [&] {
    int32_t id = lot_number();
    using tagged_message::attribute;
    using tagged_message::quoted_attribute;
    std::string msg =
        std::string(fmt::k5000NewOpen) + attribute(fmt::k5000Department, std::to_string(bnc_));
    // This builder passes the lot number as a floating value; it selects the same lot.
    RecordsetPtr rs =
        db().p_TRACEABILITY_objRetrieveRows(bnc_, Variant(automation::leading_number(id_)));
    std::string trc_id = text(*rs, "TRC_ID");
    std::string code = text(*rs, "TRC_ID_LOT");
    Variant w = rs->Fields("WCHARGED");
    int32_t charged =
        automation::double_to_int32(automation::leading_number(w.is_null() ? "0" : w.to_string()));
    msg += attribute(fmt::k5000Id, trc_id) + attribute(fmt::k5000Mode, text(*rs, "TRC_MODE")) +
           quoted_attribute(line_name(1), code);
    long total = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
      for (int i = 1; i <= fmt::k5000Lines; ++i) {
        std::string d = description(*rs, i);
        msg += quoted_attribute(line_name(i + 1), d);
        total += static_cast<long>(d.size());
      }
      msg += attribute(fmt::k5000Dtc, fmt::k5000DtcValue);
    }
    if (total == 0 && id == modUtility::p_lngNumericValue(code))
      msg = std::string(fmt::k5000DeleteOpen) + attribute(fmt::k5000Id, trc_id);
    result = msg + attribute(fmt::k5000Charged, std::to_string(charged)) +
             std::string(tagged_message::kClose);
  });
  return result;
}

std::shared_ptr<automation::Collection> clsTraceability::p_objNumberOfRecord() {
  std::shared_ptr<automation::Collection> r;
  trap(label("p_lngNumberOfRecord"), [&] { r = numbers_; });
  return r;
}

void clsTraceability::p_RetrieveTraceabilityId(bool& booVariated) {
  numbers_ = std::make_shared<automation::Collection>();
  while (true) {
    try {
      RecordsetPtr rs = booVariated ? db().p_TRACEABILITY_objRetrieveVariatedRows(bnc_)
                                    : db().p_TRACEABILITY_objRetrieveRows(bnc_, std::nullopt);
      auto list = std::make_shared<automation::Collection>();
      int16_t counter = 0;
      for (; !rs->Eof(); rs->MoveNext()) {
        list->Add(rs->Fields("TRC_ID"), std::to_string(counter));
        counter = Variant(counter + 1).to_int16();
      }
      numbers_ = list;
      return;
    } catch (const automation::Error& e) {
      // A lost database server: a new database object, then the same statement again.
      if (e.number() == automation::kRemoteServerUnavailable && recoveries_ < 5) {
        ++recoveries_;
        try {
          open_database();
          continue;
        } catch (const automation::Error& again) {
          report_trapped(label("p_CountRecord"), again.number(), again.description());
          return;
        }
      }
      report_trapped(label("p_CountRecord"), e.number(), e.description());
      return;
    }
  }
}

std::string clsTraceability::p_strFlagTrasm() {
  std::string result;
  trap(label("Get p_strFlagTrasm"), [&] {
    RecordsetPtr rs = db().p_TRACEABILITY_objRetrieveRows(bnc_, Variant(lot_number()));
    result = flags::merge(*rs, "TRC_FLAGTRASM", flags::kLineWidth);
  });
  return result;
}

void clsTraceability::p_ResetFlagTrasm(int32_t& lngLine) {
  trap(label("p_ResetFlagTrasm"), [&] {
    std::string merged = p_strFlagTrasm();
    if (merged.empty()) return;
    flags::mask_unconfigured(merged, configured_, bnc_, flags::kLineWidth);
    db().p_TRACEABILITY_UpdateFlagTrasm(bnc_, lot_number(), lngLine, merged);
  });
}

}  // namespace qk
