// A number of seconds as the transports' messages show it: "30", "0.5".
#pragma once

#include <cstdio>
#include <string>

namespace qk::sync {

inline std::string seconds_text(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", seconds);
  return text;
}

}  // namespace qk::sync
