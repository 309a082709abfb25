// Writing 1-bit bitmap files (demo logos, test inputs) and plain images for people to look at.
#pragma once

#include <string>
#include <vector>

namespace qk::images {

// A picture as rows of pixels, top row first; true = a printed (black) dot.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::vector<bool>> rows;
};

// A 1-bit BMP file: 62-byte header, palette entry 0 black and entry 1 white (so a set bit is a
// white pixel), rows bottom first, each padded to 4 bytes.
std::string encode_bmp1(const Picture& p);

// A plain PBM (P4) file, set bits black.
std::string encode_pbm(const Picture& p);

}  // namespace qk::images
