// The date and time message, one clock reading each.
//   numeric (3000, 2000):  header(25) day(2) month(2) year(last 2) hour(2) minute(2) second(2)
//                          5 March 2026 14:07:09 -> 2599990050326140709
//   5000:  <MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=<year-1900> MMM=<month> DAY=<day> HHH=<hour>
//          MIN=<minute> SSS=<second> />   (nothing padded)
//          -> <MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=126 MMM=3 DAY=5 HHH=14 MIN=7 SSS=9 />
#pragma once

#include <string_view>

namespace qk::date_format {

inline constexpr int kFieldDigits = 2;
inline constexpr std::string_view kOpen = "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA";
inline constexpr int kYearBase = 1900;
inline constexpr std::string_view kYear = "YYY", kMonth = "MMM", kDay = "DAY", kHour = "HHH",
                                  kMinute = "MIN", kSecond = "SSS";

}  // namespace qk::date_format
