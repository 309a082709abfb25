// Scale images: numeric records of type "40".
//   description record: "4099990" | image number "00" | "00" | description, blank-padded to 16 |
//                       from-date | to-date   (the empty and placeholder records end "01010101")
//   data record:        "4099990" | image number "00" | sequence "01".."99" (then "99") | chunk
// Data: L (2 bytes, most significant first), bytes per row, then the run-length stream of the
// repacked bitmap: literal bytes (never 0x00 or 0xFF) and pairs (0x00|0xFF, count 1..254). The
// stream is cut into chunks of at most 30 bytes (a chunk never ends on 0x00 or 0xFF) and every
// byte escaped: 0x80..0x84 as 0x04 b, any other byte as b XOR 0x80.
#pragma once

#include <string_view>

namespace qk::scale_image_format {

inline constexpr unsigned char kGroupBytes[2] = {0x00, 0xFF};
inline constexpr bool is_group_byte(unsigned char v) {
  return v == kGroupBytes[0] || v == kGroupBytes[1];
}
inline constexpr int kMaxRun = 254;
inline constexpr int kChunkLength = 30;
inline constexpr unsigned char kEscape = 0x04;
inline constexpr unsigned char kEscapedLow = 0x80, kEscapedHigh = 0x84;
inline constexpr unsigned char kFlipBit = 0x80;
inline constexpr std::string_view kDescriptionSequence = "00";
inline constexpr std::string_view kNoDates = "01010101";
inline constexpr std::string_view kPlaceholder = "Immagine #";
inline constexpr int kDescriptionWidth = 16;
inline constexpr int kLastSequence = 99;

}  // namespace qk::scale_image_format
