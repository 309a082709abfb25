// The 1-bit bitmap reader shared by the three image classes, and the row repacking they share.
//
// Header (62 bytes, little-endian): "BM", file size (4), reserved (4), pixel offset (4, ignored:
// pixels always start at byte 62), header size (4), width (4), height (4), planes (2),
// bits per pixel (2, must be 1), six fields of 4, palette entry 0 (4), palette entry 1 (4; a
// blue byte of 255 sets the inversion flag).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qk::images {

// The notices, shown with the exclamation icon and no title of their own.
inline constexpr const char* kNotBitmap = "Non \xE8 un file valido";
inline constexpr const char* kWrongSize = "Attenzione!\r\nLa dimensione \xE8 sbagliata";
inline constexpr const char* kNotMonochrome = "File non di tipo B/N";
inline constexpr const char* kTooLarge = "Le dimensioni dell'immagine eccedono il massimo limite!";
inline constexpr int32_t kMaxPixels = 56840;
inline constexpr std::size_t kPixelDataOffset = 62;

// A file read as bytes; Read raises error 62 when fewer than n bytes are left.
class ByteStream {
 public:
  explicit ByteStream(std::string bytes) : bytes_(std::move(bytes)) {}
  std::string Read(std::size_t n);
  std::string_view rest();  // every byte from the position on, valid while the stream lives
  std::size_t size() const { return bytes_.size(); }

 private:
  std::string bytes_;
  std::size_t pos_ = 0;
};

// Reads a whole file as bytes (error 53 when it does not exist, 75 when it cannot be read).
std::string read_file_bytes(const std::string& path);

// m_lngBinary2Long: bytes, least significant first, summed as a Double and converted to a 32-bit
// number; above 2,147,483,647 the class's trap reports the overflow and 0 comes back.
int32_t m_lngBinary2Long(const std::string& bytes, const char* class_name);

struct HeaderScan {
  int32_t file_size = 0;
  int32_t width = 0;
  bool inverted = false;
};

// m_booScanBitmapHeader: true when the header is accepted, the stream then on byte 62. A refusal
// shows its notice and returns false; outputs already written keep their values (`inverted`
// only changes once the palette is reached). Read errors and overflows are reported under the
// class's name and give false. With size_limit, width x height must not exceed 56840 pixels.
bool m_booScanBitmapHeader(ByteStream& stream, int32_t expected_size, HeaderScan& out,
                           bool size_limit, const char* class_name);

// m_strBitmap2Scales: rows top first, R = (width + 7) \ 8 bytes each, BMP padding dropped.
// Inverted: every byte negated and the last byte's pad bits cleared; otherwise pad bits set.
std::string m_strBitmap2Scales(std::string_view pixels, int32_t width, bool inverted);
// The same, appended to `out` (no intermediate copy).
void append_bitmap_rows(std::string& out, std::string_view pixels, int32_t width, bool inverted);

}  // namespace qk::images
