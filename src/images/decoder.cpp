#include <algorithm>

#include "images/bitmap_reader.h"
#include "images/kestra_printer_format.h"
#include "images/scale_image_format.h"
#include "qk/error.h"
#include "qk/pictures.h"
#include "qk/previews.h"

namespace qk::images {

namespace {

[[noreturn]] void bad(const std::string& what) {
  automation::raise(automation::kTypeMismatch, "not an image record: " + what);
}

constexpr std::size_t kRecordHead = 9;  // "4099990" and the image number

Picture rows_to_picture(const std::string& bytes, std::size_t r) {
  Picture p;
  p.width = static_cast<int>(r * 8);
  for (std::size_t pos = 0; pos + r <= bytes.size(); pos += r) {
    std::vector<bool> row(r * 8);
    for (std::size_t i = 0; i < r * 8; ++i)
      row[i] = (static_cast<unsigned char>(bytes[pos + i / 8]) >> (7 - i % 8)) & 1;
    p.rows.push_back(std::move(row));
  }
  p.height = static_cast<int>(p.rows.size());
  return p;
}

}  // namespace

std::string decompress_scale_stream(const std::string& stream) {
  namespace fmt = scale_image_format;
  std::string out;
  out.reserve(stream.size() * 4);
  for (std::size_t i = 0; i < stream.size(); ++i) {
    unsigned char b = static_cast<unsigned char>(stream[i]);
    if (b == fmt::kGroupBytes[0] || b == fmt::kGroupBytes[1]) {
      if (i + 1 >= stream.size()) bad("a run marker without its count at the end");
      unsigned char n = static_cast<unsigned char>(stream[++i]);
      if (n == 0 || n > fmt::kMaxRun) bad("run count " + std::to_string(n));
      out.append(n, static_cast<char>(b));
    } else {
      out += static_cast<char>(b);
    }
  }
  return out;
}

Picture decode_scale_records(const std::vector<std::string>& records) {
  namespace fmt = scale_image_format;
  if (records.size() < 2) bad("no data records");
  std::string stream;
  for (std::size_t k = 1; k < records.size(); ++k) {
    const std::string& rec = records[k];
    if (rec.size() < kRecordHead + 2 || rec.compare(0, 7, "4099990") != 0)
      bad("record " + std::to_string(k) + " has no type \"40\" header");
    for (std::size_t i = kRecordHead + 2; i < rec.size(); ++i) {
      unsigned char b = static_cast<unsigned char>(rec[i]);
      if (b == fmt::kEscape) {
        if (i + 1 >= rec.size()) bad("an escape at the end of record " + std::to_string(k));
        stream += rec[++i];
      } else {
        stream += static_cast<char>(b ^ fmt::kFlipBit);
      }
    }
  }
  if (stream.size() < 3) bad("the data is shorter than its prefix");
  std::size_t length =
      static_cast<unsigned char>(stream[0]) * 256u + static_cast<unsigned char>(stream[1]);
  std::size_t r = static_cast<unsigned char>(stream[2]);
  std::string bytes = decompress_scale_stream(stream.substr(3));
  if (bytes.size() != length)
    bad("the data expands to " + std::to_string(bytes.size()) + " bytes, the prefix says " +
        std::to_string(length));
  if (r == 0) bad("zero bytes per row");
  return rows_to_picture(bytes, r);
}

Picture decode_kestra_records(const std::vector<std::string>& records) {
  namespace fmt = kestra_printer_format;
  std::string bytes;
  for (std::size_t k = 0; k < records.size(); ++k) {
    const std::string& rec = records[k];
    if (rec.size() == kRecordHead + 3 && rec.compare(kRecordHead, 3, "999") == 0) break;
    if (rec.size() < kRecordHead + 3 + fmt::kRowHexDigits)
      bad("Kestra record " + std::to_string(k + 1) + " is too short");
    std::string hex = rec.substr(rec.size() - fmt::kRowHexDigits);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
      auto digit = [&](char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        bad("\"" + std::string(1, c) + "\" is not a hexadecimal digit");
      };
      bytes += static_cast<char>(digit(hex[i]) * 16 + digit(hex[i + 1]));
    }
  }
  return rows_to_picture(bytes, fmt::kRowHexDigits / 2);
}

Picture decode_printer_frames(const std::vector<std::string>& frames, int width) {
  namespace fmt = kestra_printer_format;
  std::string data;
  for (std::size_t k = 0; k < frames.size(); ++k) {
    const std::string& f = frames[k];
    if (f.size() != fmt::kFrameLength + 2)
      bad("frame " + std::to_string(k + 1) + " is not 1026 bytes");
    unsigned sum = 0;
    for (std::size_t i = 0; i < fmt::kFrameLength; ++i) sum += static_cast<unsigned char>(f[i]);
    sum %= 65536;
    if (static_cast<unsigned char>(f[fmt::kFrameLength]) != sum / 256 ||
        static_cast<unsigned char>(f[fmt::kFrameLength + 1]) != sum % 256)
      bad("frame " + std::to_string(k + 1) + " has a wrong checksum");
    data.append(f, 0, fmt::kFrameLength);
  }
  if (data.size() < fmt::kLeadIn) bad("no lead-in");
  if (width <= 0) bad("the width must be given");
  Picture p = rows_to_picture(data.substr(fmt::kLeadIn), (static_cast<std::size_t>(width) + 7) / 8);
  while (!p.rows.empty() &&
         std::none_of(p.rows.back().begin(), p.rows.back().end(), [](bool b) { return b; }))
    p.rows.pop_back();
  p.height = static_cast<int>(p.rows.size());
  return p;
}

Picture read_bitmap(const std::string& bytes) {
  ByteStream s(bytes);
  HeaderScan h;
  if (!m_booScanBitmapHeader(s, static_cast<int32_t>(bytes.size()), h, false, "clsImage") ||
      h.width <= 0)
    automation::raise(automation::kTypeMismatch,
                      "not a 1-bit uncompressed BMP the scale encoders accept");
  std::size_t r = (static_cast<std::size_t>(h.width) + 7) / 8;
  return rows_to_picture(m_strBitmap2Scales(s.rest(), h.width, h.inverted), r);
}

}  // namespace qk::images
