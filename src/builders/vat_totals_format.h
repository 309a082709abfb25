// VAT rates and totals requests for the 2000 series.
//   VAT rate (25 characters): "h" "0" | rate number, 2 digits | "ALIQUOTA <n>" left in 16 |
//                             "1" | rate in hundredths of a percent, 4 digits (22% is 2200)
//   Totals request (8 characters): "c" "0" | PLU, 6 digits
#pragma once

#include <string_view>

namespace qk::vat_totals_format {

inline constexpr std::string_view kVatType = "h";
inline constexpr std::string_view kTotalsType = "c";
inline constexpr std::string_view kFiller = "0";
inline constexpr std::string_view kVatDescription = "ALIQUOTA ";
inline constexpr std::string_view kVatFlag = "1";
inline constexpr int kVatIdWidth = 2;
inline constexpr int kVatDescriptionWidth = 16;
inline constexpr int kVatRateWidth = 4;
inline constexpr int kPluWidth = 6;
inline constexpr int kAllCounters = 255;

}  // namespace qk::vat_totals_format
