// The host's checked integer arithmetic and string functions (conversions.h).
#include <cctype>
#include <cstdint>

#include "automation/conversions.h"
#include "qk/error.h"

namespace qk::automation {

int16_t checked_int16(int64_t v) {
  if (v < INT16_MIN || v > INT16_MAX) raise(kOverflow);
  return static_cast<int16_t>(v);
}

int32_t checked_int32(int64_t v) {
  if (v < INT32_MIN || v > INT32_MAX) raise(kOverflow);
  return static_cast<int32_t>(v);
}

std::string trim(std::string_view s) {
  std::size_t a = s.find_first_not_of(' ');
  if (a == std::string_view::npos) return "";
  return std::string(s.substr(a, s.find_last_not_of(' ') - a + 1));
}

std::string mid(std::string_view s, std::size_t start, std::size_t length) {
  if (start == 0) raise(kInvalidProcedureCall);
  return start > s.size() ? "" : std::string(s.substr(start - 1, length));
}

std::string ucase(std::string_view s) {
  std::string r(s);
  for (char& c : r)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return r;
}

}  // namespace qk::automation
