#include "frame/modUtility.h"

#include "automation/conversions.h"
#include "frame/report_error.h"
#include "qk/error.h"

namespace qk {

using automation::raise;

namespace modHelpers {

std::string p_strFormattaCampo(const std::string& value, int16_t iModo, int16_t iLen) {
  if (iLen < 0) raise(automation::kInvalidProcedureCall);  // the fill string cannot be built
  std::size_t n = static_cast<std::size_t>(iLen);
  if (iModo == 1) {
    std::string s = std::string(n, '0') + value;
    s.erase(0, s.size() - n);
    for (char& c : s)
      if (!(c >= '0' && c <= '9') && c != ',') c = '0';
    return s;
  }
  std::string s = value + std::string(n, ' ');
  s.resize(n);
  return s;
}

std::string p_strCommaToPeriodInPlace(std::string& s) {
  if (s.size() > 255) raise(automation::kOverflow);  // 8-bit loop index and length
  for (char& c : s)
    if (c == ',') c = '.';
  return s;
}

int32_t p_lngNumericValueInPlace(std::string& s) {
  p_strCommaToPeriodInPlace(s);
  return automation::double_to_int32(automation::leading_number(s));
}

}  // namespace modHelpers

namespace modUtility {

std::string p_strFormattaCampo(const std::string& value, int16_t iModo, int16_t iLen) {
  std::string result;
  trap({"p_strFormattaCampo", "modUtility"},
       [&] { result = modHelpers::p_strFormattaCampo(value, iModo, iLen); });
  return result;
}

std::string p_strCommaToPeriod(const std::string& s) {
  std::string r = s;
  for (char& c : r)
    if (c == ',') c = '.';
  return r;
}

int32_t p_lngNumericValue(const std::string& s) {
  return automation::double_to_int32(automation::leading_number(p_strCommaToPeriod(s)));
}

int32_t p_intCountCharacter(const std::string& s, const std::string& c) {
  if (s.size() > 32767) raise(automation::kOverflow);  // 16-bit loop index
  int32_t n = 0;
  for (char ch : s)
    if (c.size() == 1 && ch == c[0]) ++n;
  return n;
}

automation::StringArray m_strSplitString(const std::string& text, int16_t& n) {
  automation::StringArray result;
  if (text.empty()) return result;
  if (n < 1) raise(automation::kInvalidProcedureCall);
  std::size_t pos = 0;
  std::vector<std::string> chunks;
  chunks.reserve(text.size() / static_cast<std::size_t>(n) + 1);
  while (pos < text.size()) {
    std::size_t left = text.size() - pos;
    if (left < static_cast<std::size_t>(n)) n = static_cast<int16_t>(left);
    chunks.push_back(text.substr(pos, static_cast<std::size_t>(n)));
    pos += static_cast<std::size_t>(n);
  }
  return automation::StringArray(std::move(chunks), 0);
}

}  // namespace modUtility

}  // namespace qk
