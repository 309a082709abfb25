#include "qk/clsAbbinamentoTasti.h"

#include <cmath>

#include "automation/conversions.h"
#include "builders/key_binding_format.h"
#include "frame/creation.h"
#include "frame/flags.h"
#include "frame/globals.h"
#include "frame/modUtility.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"

namespace qk {

namespace fmt = key_binding_format;
using automation::Variant;

namespace {

constexpr const char* kClass = "clsAbbinamentoTasti";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

long department(const Variant& v) {
  return v.to_int32();
}

// 2 ^ (line - 1) as the host computes it (a Double: line 0 gives 0.5).
double line_mask(int line) {
  return std::pow(2.0, line - 1);
}

std::string default_message(long key, long dept) {
  std::string k = std::to_string(key);
  return std::string(fmt::kMessageOpen) + std::string(fmt::kId) + k + std::string(fmt::kTip) + "0" +
         std::string(fmt::kRep) + std::to_string(dept) + std::string(fmt::kVal) + k +
         std::string(fmt::kMessageClose);
}

std::string record_2000(long key, const std::string& mode_digit, const Variant& value) {
  std::string v = automation::format_digits(value, fmt::kValue2000Format);
  return std::string(fmt::kRecord2000Prefix) + fmt::kRecord2000Marker +
         automation::format_digits(Variant(static_cast<long>(key)), fmt::kKey2000Format) +
         mode_digit + v + v;
}

}  // namespace

clsAbbinamentoTasti::clsAbbinamentoTasti() {
  run_creation_sequence(kClass, kStepsWithDatabase | kStepReadSilent);
}

void clsAbbinamentoTasti::InitializeGlobal() {
  trap(label("InitializeGlobal"), [&] {
    // Every scale and every key of the department: the walk asks for each key on the line.
    global_rs_ = db().p_TASTIERA_PLU_objRetrieveGlobalData2(department(dept_), 0, 0);
    record_count_ = Variant(global_rs_->RecordCount()).to_int16();
  });
}

void clsAbbinamentoTasti::GlobalMode(const std::string& v) {
  trap(label("GlobalMode"), [&] { global_ = Variant(v).to_bool(); });
}

bool clsAbbinamentoTasti::m_lineBitSet(const Variant& lines) const {
  double mask = line_mask(line_);
  return static_cast<double>(Variant(mask).to_int32() & lines.to_int32()) == mask;
}

std::string clsAbbinamentoTasti::m_strGroupByBlockNumber(long key) {
  std::string result;
  trap(label("m_strGroupByBlockNumber"), [&] {
    long block = (key - 1) / fmt::kKeysPerBlock;  // truncates toward zero, as "\" does
    struct Slot {
      Variant key, value;
      int mode = 0;
    } slots[fmt::kKeysPerBlock + 1];
    auto rs = db().p_TASTIERA_PLU_objRetrieveBlockValues(department(dept_), key,
                                                         modUtility::p_lngNumericValue(scale_));
    int most = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
      std::string flags = rs->Fields("TP_FLAGTRASM").to_text();
      int ones = modUtility::p_intCountCharacter(flags, "1");
      if (ones > most) {
        most = ones;
        block_flags_ = flags;
      }
      long tp_key = rs->Fields("TP_KEY").to_int32();
      long slot = (tp_key - 1) % fmt::kKeysPerBlock + 1;
      if (slot < 1) continue;  // a key below 1 has no slot in this block
      if (m_lineBitSet(rs->Fields("TP_LINES"))) {
        slots[slot].key = tp_key;
        slots[slot].value = rs->Fields("TP_VALUE");
        slots[slot].mode = rs->Fields("TP_MODE").to_string() == fmt::kPluMode ? 0 : 1;
      }
    }
    std::string body;
    body.reserve(fmt::kKeysPerBlock * 5);
    for (int i = 1; i <= fmt::kKeysPerBlock; ++i) {
      Slot& s = slots[i];
      if (s.key.equals_number(0)) {
        long own = block * fmt::kKeysPerBlock + i;
        s.key = own;
        s.value = own;
        s.mode = 0;
      }
      body += std::to_string(s.mode);
      body += modUtility::p_strFormattaCampo(s.value.to_string(), 1, fmt::kValueWidth);
    }
    result = body;
  });
  return result;
}

std::string clsAbbinamentoTasti::p_strProtocol() {
  std::string result;
  trap(label("Get p_strProtocol"), [&] {
    long key = modUtility::p_lngNumericValue(key_);
    std::string block = m_strGroupByBlockNumber(key);
    if (block.empty()) return;  // the block builder reported; nothing half-built is sent
    result = numeric_record::header(numeric_record::kKeyBindings) +
             std::to_string((key - 1) / fmt::kKeysPerBlock) + block;
  });
  return result;
}

clsAbbinamentoTasti::Row clsAbbinamentoTasti::m_selectRow(long* key) {
  long dept = department(dept_);
  automation::RecordsetPtr rs;
  if (global_) {
    if (!global_rs_) automation::raise(automation::kObjectNotSet);
    if (global_rs_->Eof()) return {};  // the caller returns "" at the end of the walk
    global_rs_->AbsolutePosition(cursor_);
    long g = global_rs_->Fields("TP_KEY").to_int32();
    *key = g;
    rs = db().p_objRetrieveGenericRecordset(
        "select * from TASTIERA_PLU where TP_BNC = " + std::to_string(dept) +
        " and TP_KEY = " + std::to_string(g) + " and (int(TP_LINES/" +
        automation::double_to_text(line_mask(line_)) + ")) mod 2 <> 0");
    if (rs->Eof()) return {false, g, "", "", false};
    key_ = std::to_string(g);
  } else {
    *key = modUtility::p_lngNumericValue(key_);
    rs = db().p_TASTIERA_PLU_objRetrieveAssociatedPlu(dept, *key,
                                                      modUtility::p_lngNumericValue(scale_));
    record_count_ = 0;
    if (rs->Eof()) return {false, *key, "", "", false};
  }
  Row r;
  r.found = true;
  r.key = rs->Fields("TP_KEY").to_int32();
  r.value = rs->Fields("TP_VALUE").to_string();
  r.mode = rs->Fields("TP_MODE").to_string();
  r.bound = m_lineBitSet(rs->Fields("TP_LINES"));
  return r;
}

std::string clsAbbinamentoTasti::p_strProtocolO50() {
  std::string result;
  trap(label("p_strProtocolO50"), [&] {
    if (global_ && global_rs_ && global_rs_->Eof()) return;
    long dept = department(dept_), key = 0;
    Row r = m_selectRow(&key);
    if (!r.found || !r.bound) {
      result = default_message(r.found ? r.key : key, dept);
      return;
    }
    result = std::string(fmt::kMessageOpen) + std::string(fmt::kId) + std::to_string(r.key) +
             std::string(fmt::kTip) + (r.mode == fmt::kPluMode ? "0" : "1") +
             std::string(fmt::kRep) + std::to_string(dept) + std::string(fmt::kVal) + r.value +
             std::string(fmt::kMessageClose);
  });
  return result;
}

std::string clsAbbinamentoTasti::p_strProtocolO20() {
  std::string result;
  trap(label("p_strProtocolO20"), [&] {
    if (global_ && global_rs_ && global_rs_->Eof()) return;
    long key = 0;
    Row r = m_selectRow(&key);
    if (!r.found || !r.bound) {
      long k = r.found ? r.key : key;
      result = record_2000(k, std::string(fmt::kPluMode2000), Variant(static_cast<long>(k)));
      return;
    }
    result = record_2000(
        r.key, std::string(r.mode == fmt::kPluMode ? fmt::kPluMode2000 : fmt::kOtherMode2000),
        Variant(r.value));
  });
  return result;
}

std::string clsAbbinamentoTasti::p_strFlagTrasm() {
  std::string result;
  trap(label("Get p_strFlagTrasm"), [&] {
    auto rs = db().p_TASTIERA_PLU_objRetrieveBlockValues(department(dept_),
                                                         modUtility::p_lngNumericValue(key_),
                                                         modUtility::p_lngNumericValue(scale_));
    result = flags::merge(*rs, "TP_FLAGTRASM", flags::kLineWidth);
  });
  return result;
}

std::string clsAbbinamentoTasti::m_key_flags_query() const {
  return "select * from TASTIERA_PLU where TP_BNC = " + std::to_string(department(dept_)) +
         " and TP_KEY = " + std::to_string(modUtility::p_lngNumericValue(key_));
}

std::string clsAbbinamentoTasti::p_strFlagTrasm50() {
  std::string result;
  trap(label("Get p_strFlagTrasm50"), [&] {
    auto rs = db().p_objRetrieveGenericRecordset(m_key_flags_query());
    result = flags::merge(*rs, "TP_FLAGTRASM", flags::kLineWidth);
  });
  return result;
}

std::string clsAbbinamentoTasti::p_strFlagTrasm20() {
  std::string result;
  trap(label("Get p_strFlagTrasm20"), [&] {
    auto rs = db().p_objRetrieveGenericRecordset(m_key_flags_query());
    result = flags::merge(*rs, "TP_FLAGTRASM", flags::kLineWidth);
  });
  return result;
}

void clsAbbinamentoTasti::p_ResetFlagTrasm(int32_t& lngLine) {
  trap(label("p_ResetFlagTrasm"), [&] {
    std::string merged = p_strFlagTrasm();
    if (merged.empty()) return;
    long dept = department(dept_);
    flags::mask_unconfigured(merged, configured_, dept, flags::kLineWidth);
    db().p_TASTIERA_PLU_UpdateFlagTrasm(dept, modUtility::p_lngNumericValue(key_),
                                        modUtility::p_lngNumericValue(scale_), lngLine, merged);
  });
}

void clsAbbinamentoTasti::m_reset_single(int32_t& lngLine, bool o50) {
  std::string merged = o50 ? p_strFlagTrasm50() : p_strFlagTrasm20();
  if (merged.empty()) return;
  flags::clear_line(merged, lngLine);
  db().p_GENERIC_ExecuteQuery(
      "update TASTIERA_PLU set TP_FLAGTRASM= '" + merged +
      "' where TP_BNC= " + std::to_string(department(dept_)) +
      " and TP_KEY= " + std::to_string(modUtility::p_lngNumericValue(key_)));
}

void clsAbbinamentoTasti::p_ResetFlagTrasm50(int32_t& lngLine) {
  trap(label("p_ResetFlagTrasm50"), [&] { m_reset_single(lngLine, true); });
}

void clsAbbinamentoTasti::p_ResetFlagTrasm20(int32_t& lngLine) {
  trap(label("p_ResetFlagTrasm20"), [&] { m_reset_single(lngLine, false); });
}

}  // namespace qk
