// Tagged messages of the 5000 series: an opening such as "<MSG OPE=NEW TYP=LAY", attributes each
// written as a blank, the name, "=" and the value, and " />". Each message kind keeps its
// opening and attribute names in its own *_format.h.
#pragma once

#include <string>
#include <string_view>

namespace qk::tagged_message {

inline constexpr std::string_view kClose = " />";

// " NAME=value".
inline std::string attribute(std::string_view name, std::string_view value) {
  std::string s;
  s.reserve(name.size() + value.size() + 2);
  s.append(" ").append(name).append("=").append(value);
  return s;
}

// " NAME="value"" (values between double quotes, as advertising messages, lots and texts carry
// them; a quote inside the value is not escaped).
inline std::string quoted_attribute(std::string_view name, std::string_view value) {
  std::string s;
  s.reserve(name.size() + value.size() + 4);
  s.append(" ").append(name).append("=\"").append(value).append("\"");
  return s;
}

}  // namespace qk::tagged_message
