// Turns image records back into pixel rows: the inverse of the three encoders, used by the tests
// as a round trip and by "qkp image --decode" to show what a scale will print. Malformed input
// raises automation::Error (13) with a description of what is wrong.
#pragma once

#include <string>
#include <vector>

#include "images/bitmap_file.h"

namespace qk::images {

// The run-length stream (after the 3-byte prefix) expanded back to the repacked bytes.
std::string decompress_scale_stream(const std::string& stream);

// Type "40" scale-image records (description record first). The picture is R x 8 pixels wide,
// pad bits included; set bits are printed dots.
Picture decode_scale_records(const std::vector<std::string>& records);

// Kestra records (rows then the "999" end record): 384 pixels wide.
Picture decode_kestra_records(const std::vector<std::string>& records);

// Printer frames; checksums are verified. Rows of (width + 7) / 8 bytes; trailing all-blank rows
// (the frame padding) are dropped.
Picture decode_printer_frames(const std::vector<std::string>& frames, int width);

}  // namespace qk::images
