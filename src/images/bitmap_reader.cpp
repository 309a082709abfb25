#include "images/bitmap_reader.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "automation/conversions.h"
#include "frame/report_error.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk::images {

std::string ByteStream::Read(std::size_t n) {
  if (bytes_.size() - pos_ < n) automation::raise(automation::kInputPastEndOfFile);
  std::string s = bytes_.substr(pos_, n);
  pos_ += n;
  return s;
}

std::string_view ByteStream::rest() {
  std::string_view s = std::string_view(bytes_).substr(pos_);
  pos_ = bytes_.size();
  return s;
}

std::string read_file_bytes(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec))
    automation::raise(automation::kFileNotFound, "File not found: " + path);
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) automation::raise(automation::kPathFileAccessError, "Path/File access error: " + path);
  // One read of the whole file, sized from its end.
  std::string bytes(static_cast<std::size_t>(std::max<std::streamoff>(in.tellg(), 0)), '\0');
  in.seekg(0);
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

int32_t m_lngBinary2Long(const std::string& bytes, const char* class_name) {
  int32_t result = 0;
  trap({"m_lngBinary2Long", class_name}, [&] {
    double sum = 0, scale = 1;
    for (unsigned char c : bytes) {
      sum += c * scale;
      scale *= 256;
    }
    result = automation::double_to_int32(sum);
  });
  return result;
}

namespace {
void notice(const char* text) {
  host::message_box(text, "", host::kNoticeBox);
}
}  // namespace

bool m_booScanBitmapHeader(ByteStream& stream, int32_t expected_size, HeaderScan& out,
                           bool size_limit, const char* class_name) {
  bool accepted = false;
  trap({"m_booScanBitmapHeader", class_name}, [&] {
    if (stream.Read(2) != "BM") return notice(kNotBitmap);
    out.file_size = m_lngBinary2Long(stream.Read(4), class_name);
    if (out.file_size != expected_size) return notice(kWrongSize);
    stream.Read(4);  // reserved
    stream.Read(4);  // pixel offset: not used, pixels start at byte 62
    stream.Read(4);  // information header size
    out.width = m_lngBinary2Long(stream.Read(4), class_name);
    int32_t height = m_lngBinary2Long(stream.Read(4), class_name);
    stream.Read(2);  // planes
    if (m_lngBinary2Long(stream.Read(2), class_name) != 1) return notice(kNotMonochrome);
    for (int i = 0; i < 6; ++i) stream.Read(4);
    stream.Read(4);  // palette entry 0
    out.inverted = static_cast<unsigned char>(stream.Read(4)[0]) == 255;
    if (!size_limit) {
      accepted = true;
      return;
    }
    int64_t pixels = automation::checked_int32(static_cast<int64_t>(out.width) * height);
    if (pixels <= kMaxPixels)
      accepted = true;
    else
      notice(kTooLarge);
  });
  return accepted;
}

void append_bitmap_rows(std::string& out, std::string_view pixels, int32_t width, bool inverted) {
  int64_t r = (static_cast<int64_t>(width) + 7) / 8;
  if (r <= 0) return;
  int64_t stride = (r + 3) / 4 * 4;
  int pad_bits = static_cast<int>(8 * r - width);
  unsigned char mask = static_cast<unsigned char>((1u << pad_bits) - 1);
  int64_t rows = static_cast<int64_t>(pixels.size()) / stride;
  std::size_t start = out.size();
  out.resize(start + static_cast<std::size_t>(rows * r));
  char* dst = out.data() + start;
  // Rows are stored bottom first; bytes before the first whole row are ignored.
  for (int64_t offset = static_cast<int64_t>(pixels.size()) - stride; offset >= 0;
       offset -= stride) {
    const unsigned char* src = reinterpret_cast<const unsigned char*>(pixels.data()) + offset;
    for (int64_t i = 0; i < r; ++i) {
      unsigned char b = src[i];
      if (inverted) {
        b = static_cast<unsigned char>(~b);
        if (i == r - 1) b &= static_cast<unsigned char>(~mask);
      } else if (i == r - 1) {
        b |= mask;
      }
      *dst++ = static_cast<char>(b);
    }
  }
}

std::string m_strBitmap2Scales(std::string_view pixels, int32_t width, bool inverted) {
  std::string out;
  append_bitmap_rows(out, pixels, width, inverted);
  return out;
}

}  // namespace qk::images
