// Barcode formats on the wire: numeric record type "18".
//   header "1899990" | form number, 2 digits | for each field: code as stored, length 2 digits
//   Example: form 3 with BC_VALUE "A#6@B#13" gives 189999003A06B13.
// BC_VALUE lists the fields as code#length items separated by "@".
#pragma once

namespace qk::barcode_format {

inline constexpr char kItemSeparator = '@';
inline constexpr char kCodeSeparator = '#';
inline constexpr int kFormWidth = 2;
inline constexpr int kLengthWidth = 2;

}  // namespace qk::barcode_format
