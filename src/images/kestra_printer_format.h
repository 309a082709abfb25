// Kestra images: one type "40" record per pixel row, uncompressed.
//   row record: "4099990" | image number "00" | row "001", "002", … | 96 hex digits (48 bytes)
//   end record: "4099990" | image number "00" | "999"
// Printer frames: 512 bytes 0xFF, then the repacked rows, cut into 1024-byte frames (the last
// zero-filled, at least 23 frames), each followed by its checksum (sum of its bytes mod 65536),
// high byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qk::kestra_printer_format {

inline constexpr std::size_t kRowHexDigits = 96;
inline constexpr std::string_view kRowFormat = "000";
inline constexpr std::string_view kEndRecord = "999";

inline constexpr std::size_t kLeadIn = 512;
inline constexpr unsigned char kLeadInByte = 0xFF;
inline constexpr std::size_t kFrameLength = 1024;
inline constexpr long kMinimumFrames = 23;

// The sum of a frame's first 1024 bytes (exactly those: frames are that long when summed).
inline int32_t frame_checksum(std::string_view frame) {
  int32_t sum = 0;
  for (std::size_t i = 0; i < kFrameLength && i < frame.size(); ++i)
    sum += static_cast<unsigned char>(frame[i]);
  return sum;
}

}  // namespace qk::kestra_printer_format
