#include "qk/clsBarCode.h"

#include "builders/barcode_format.h"
#include "frame/creation.h"
#include "frame/flags.h"
#include "frame/globals.h"
#include "frame/modUtility.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"

namespace qk {

namespace fmt = barcode_format;

namespace {

constexpr const char* kClass = "clsBarCode";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

std::vector<std::string> split(const std::string& s, char sep) {
  std::vector<std::string> parts;
  if (s.empty()) return parts;  // an empty text splits into no items
  std::size_t start = 0;
  while (true) {
    auto at = s.find(sep, start);
    parts.push_back(s.substr(start, at == std::string::npos ? std::string::npos : at - start));
    if (at == std::string::npos) break;
    start = at + 1;
  }
  return parts;
}

}  // namespace

clsBarCode::clsBarCode() {
  // The translation loader of this class reports "clsBarcode".
  run_creation_sequence(kClass, kStepsWithDatabase, {}, "clsBarcode");
}

void clsBarCode::p_varKey(const automation::Variant& v) {
  trap(label("Let p_varKey"), [&] {
    key_ = v;
    m_LoadForm();
  });
}

void clsBarCode::m_LoadForm() {
  trap(label("m_LoadForm"), [&] {
    forms_.assign(1, "");
    cursor_ = 0;
    eof_ = false;
    auto rs = db().p_BARCODE_objLoadForms(modUtility::p_lngNumericValue(key_.to_string()));
    if (rs->Eof()) {
      eof_ = true;
      return;
    }
    for (; !rs->Eof(); rs->MoveNext()) {
      forms_.back() = rs->Fields("BC_FORM").to_string();
      forms_.emplace_back();
    }
  });
}

void clsBarCode::p_MoveFirst() {
  trap(label("p_MoveFirst"), [&] {
    form_ = forms_.front();
    cursor_ = 0;
  });
}

void clsBarCode::p_MoveNext() {
  trap(label("p_MoveNext"), [&] {
    ++cursor_;
    if (cursor_ < static_cast<int16_t>(forms_.size()) - 1)
      form_ = forms_[cursor_];
    else
      eof_ = true;
  });
}

std::string clsBarCode::p_strProtocol() {
  std::string result;
  trap(label("Get p_strProtocol"), [&] {
    auto rs = db().p_BARCODE_objLoadValues(modUtility::p_lngNumericValue(key_.to_string()),
                                           modUtility::p_lngNumericValue(form_));
    if (rs->Eof()) return;
    auto items = split(rs->Fields("BC_VALUE").to_string(), fmt::kItemSeparator);
    // The item tables are sized from the split: no items cannot be sized.
    if (items.empty()) automation::raise(automation::kSubscriptOutOfRange);
    std::vector<std::pair<std::string, std::string>> fields;
    for (const auto& item : items) {
      auto parts = split(item, fmt::kCodeSeparator);
      if (parts.size() < 2) automation::raise(automation::kSubscriptOutOfRange);
      fields.emplace_back(parts[0], parts[1]);
    }
    std::string record = numeric_record::header(numeric_record::kBarcodeFormat) +
                         modUtility::p_strFormattaCampo(form_, 1, fmt::kFormWidth);
    for (const auto& [code, length] : fields)
      record += code + modUtility::p_strFormattaCampo(length, 1, fmt::kLengthWidth);
    result = record;
  });
  return result;
}

std::string clsBarCode::p_strFlagTrasm() {
  std::string result;
  trap(label("Get p_strFlagTrasm"), [&] {
    auto rs = db().p_BARCODE_objLoadValues(modUtility::p_lngNumericValue(key_.to_string()),
                                           modUtility::p_lngNumericValue(form_));
    std::string stored;
    if (!rs->Eof() && !rs->Fields("BC_FLAGTRASM").is_null())
      stored = rs->Fields("BC_FLAGTRASM").to_string();
    result = stored.empty() ? std::string(flags::kBarcodeWidth, '0') : stored;
  });
  return result;
}

void clsBarCode::p_ResetFlagTrasm(int32_t& lngLine) {
  trap(label("p_ResetFlagTrasm"), [&] {
    std::string merged = p_strFlagTrasm();
    if (merged.empty()) return;
    long dept = key_.to_int32();
    flags::mask_unconfigured(merged, configured_, dept, flags::kBarcodeWidth);
    db().p_BARCODE_UpdateFlagTrasm(dept, modUtility::p_lngNumericValue(form_), lngLine, merged);
  });
}

}  // namespace qk
