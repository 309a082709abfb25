#include "qk/pictures.h"

namespace qk::images {

namespace {
void put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}
void put16(std::string& s, uint16_t v) {
  s += static_cast<char>(v & 0xFF);
  s += static_cast<char>(v >> 8);
}
}  // namespace

std::string encode_bmp1(const Picture& p) {
  uint32_t row_bytes = (static_cast<uint32_t>(p.width) + 7) / 8;
  uint32_t stride = (row_bytes + 3) / 4 * 4;
  uint32_t data = stride * static_cast<uint32_t>(p.height);
  std::string s = "BM";
  put32(s, 62 + data);
  put32(s, 0);
  put32(s, 62);
  put32(s, 40);
  put32(s, static_cast<uint32_t>(p.width));
  put32(s, static_cast<uint32_t>(p.height));
  put16(s, 1);
  put16(s, 1);
  put32(s, 0);
  put32(s, data);
  put32(s, 2835);
  put32(s, 2835);
  put32(s, 2);
  put32(s, 0);
  put32(s, 0x00000000);  // entry 0: black
  put32(s, 0x00FFFFFF);  // entry 1: white
  for (int y = p.height - 1; y >= 0; --y) {
    std::string row(stride, '\0');
    for (int x = 0; x < p.width; ++x)
      if (!p.rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)])  // white bit set
        row[static_cast<std::size_t>(x / 8)] |= static_cast<char>(0x80 >> (x % 8));
    s += row;
  }
  return s;
}

std::string encode_pbm(const Picture& p) {
  std::string s = "P4\n" + std::to_string(p.width) + " " + std::to_string(p.height) + "\n";
  for (const auto& r : p.rows) {
    std::string row((static_cast<std::size_t>(p.width) + 7) / 8, '\0');
    for (int x = 0; x < p.width; ++x)
      if (r[static_cast<std::size_t>(x)])
        row[static_cast<std::size_t>(x / 8)] |= static_cast<char>(0x80 >> (x % 8));
    s += row;
  }
  return s;
}

}  // namespace qk::images
