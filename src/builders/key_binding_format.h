// Key bindings on the wire.
//
// 3000 series, numeric record type "35", one block of 15 keys:
//   header "3599990" | block number (key - 1) \ 15, unpadded | 15 x (mode digit, value in 4 digits)
//   mode digit 0 = PLU ("P"), 1 = any other kind; an unassigned key calls up its own PLU number.
//   Example, keys 16..30 unassigned: 35999901 00016 00017 ... 00030
// 5000 series, one message per key (note the two blanks before ID):
//   <MSG OPE=NEW TYP=TAS  ID=7 TIP=0 REP=3 VAL=7 />
// 2000 series, one record per key:
//   "A000" | 0xC4 | key "000" | mode "1" = PLU, "2" = other | value "000000" | value "000000"
#pragma once

#include <string_view>

#include "qk/archive_tools.h"

namespace qk::key_binding_format {

inline constexpr int kKeysPerBlock = qk::kKeysPerBlock;
inline constexpr int kValueWidth = 4;  // per key in the type "35" block
inline constexpr std::string_view kPluMode = "P";

inline constexpr std::string_view kMessageOpen = "<MSG OPE=NEW TYP=TAS ";
inline constexpr std::string_view kId = " ID=";
inline constexpr std::string_view kTip = " TIP=";
inline constexpr std::string_view kRep = " REP=";
inline constexpr std::string_view kVal = " VAL=";
inline constexpr std::string_view kMessageClose = " />";

inline constexpr std::string_view kRecord2000Prefix = "A000";
inline constexpr char kRecord2000Marker = static_cast<char>(196);
inline constexpr std::string_view kKey2000Format = "000";
inline constexpr std::string_view kValue2000Format = "000000";
inline constexpr std::string_view kPluMode2000 = "1";
inline constexpr std::string_view kOtherMode2000 = "2";

}  // namespace qk::key_binding_format
