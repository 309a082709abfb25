// Numeric records of the 3000 and 2000 series: fixed-width fields with no separators, each record
// opened by a seven-character header: type (2 digits) "99" "99" "0". Example: 3599990 opens a
// type "35" record. The body of each type is laid out in the builder's own format header.
#pragma once

#include <string>
#include <string_view>

namespace qk::numeric_record {

inline constexpr std::string_view kFieldA = "99";
inline constexpr std::string_view kFieldB = "99";
inline constexpr std::string_view kFieldC = "0";

// Record types produced by the component.
inline constexpr std::string_view kBarcodeFormat = "18";
inline constexpr std::string_view kTraceabilityLot = "20";
inline constexpr std::string_view kDateTime = "25";
inline constexpr std::string_view kKeyBindings = "35";
inline constexpr std::string_view kImage = "40";
inline constexpr std::string_view kLayoutReceiveRequest = "46";
inline constexpr std::string_view kLayoutHeader = "96";

// The header: the four literals concatenated in this order.
inline std::string header(std::string_view type) {
  std::string h;
  h.reserve(7);
  h.append(type).append(kFieldA).append(kFieldB).append(kFieldC);
  return h;
}

}  // namespace qk::numeric_record
