// Pictures as the scales print them: 1-bit bitmaps written for the scales (demo logos, test
// inputs), and image records turned back into pixel rows (the inverse of the three image
// encoders), to show people what a scale will print. Malformed records raise
// automation::Error (13) with a description of what is wrong.
#pragma once

#include <string>
#include <vector>

#include "qk/export.h"

namespace qk::images {

// A picture as rows of pixels, top row first; true = a printed (black) dot.
struct QK_API Picture {
  int width = 0;
  int height = 0;
  std::vector<std::vector<bool>> rows;
};

// A 1-bit BMP file: 62-byte header, palette entry 0 black and entry 1 white (so a set bit is a
// white pixel), rows bottom first, each padded to 4 bytes.
QK_API std::string encode_bmp1(const Picture& p);

// A plain PBM (P4) file, set bits black.
QK_API std::string encode_pbm(const Picture& p);

// The run-length stream (after the 3-byte prefix) expanded back to the repacked bytes.
QK_API std::string decompress_scale_stream(const std::string& stream);

// Type "40" scale-image records (description record first). The picture is R x 8 pixels wide,
// pad bits included; set bits are printed dots.
QK_API Picture decode_scale_records(const std::vector<std::string>& records);

// Kestra records (rows then the "999" end record): 384 pixels wide.
QK_API Picture decode_kestra_records(const std::vector<std::string>& records);

// Printer frames; checksums are verified. Rows of (width + 7) / 8 bytes; trailing all-blank rows
// (the frame padding) are dropped.
QK_API Picture decode_printer_frames(const std::vector<std::string>& frames, int width);

}  // namespace qk::images
