#include "qk/clsImage.h"

#include "automation/conversions.h"
#include "frame/creation.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"
#include "images/bitmap_reader.h"
#include "images/run_length.h"
#include "images/scale_image_format.h"

namespace qk {

namespace fmt = scale_image_format;

namespace {

constexpr const char* kClass = "clsImage";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

// m_strSplitString of this class: chunks of n, index 1 upwards; a chunk that would end on a
// group byte (a run marker whose count falls into the next chunk) is one byte shorter.
automation::StringArray split_chunks(const std::string& text, int n) {
  std::vector<std::string> chunks;
  chunks.reserve(text.size() / static_cast<std::size_t>(n) + 1);
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t take = std::min<std::size_t>(static_cast<std::size_t>(n), text.size() - pos);
    if (fmt::is_group_byte(static_cast<unsigned char>(text[pos + take - 1])) && take > 1) --take;
    chunks.push_back(text.substr(pos, take));
    pos += take;
  }
  if (chunks.empty()) return {};
  return automation::StringArray(std::move(chunks), 1);
}

std::string spaces_to(const std::string& s, int width) {
  if (static_cast<int>(s.size()) > width) automation::raise(automation::kInvalidProcedureCall);
  return s + std::string(static_cast<std::size_t>(width) - s.size(), ' ');
}

}  // namespace

clsImage::clsImage() {
  run_creation_sequence(kClass, kStepsWithDatabase);
}

void clsImage::m_CompressionEngine(unsigned char v, bool first, bool last) {
  images::compress_byte({previous_, run_count_, compressed_}, v, first, last);
}

std::string clsImage::m_strCompressBitmap(const std::string& path) {
  std::string result;
  trap(label("m_strCompressBitmap"), [&] {
    images::ByteStream stream(images::read_file_bytes(path));
    images::HeaderScan h;
    if (!images::m_booScanBitmapHeader(stream, static_cast<int32_t>(stream.size()), h, true,
                                       kClass))
      return;
    std::string b = images::m_strBitmap2Scales(stream.rest(), h.width, h.inverted);
    std::size_t l = b.size();
    if (l / 256 > 255) automation::raise(automation::kInvalidProcedureCall);  // no 2-byte length
    std::string prefix;
    prefix += static_cast<char>(l / 256);
    prefix += static_cast<char>(l % 256);
    prefix += static_cast<char>((h.width + 7) / 8);
    compressed_.reserve(l + l / 2);
    for (std::size_t i = 0; i < l; ++i)
      m_CompressionEngine(static_cast<unsigned char>(b[i]), i == 0, i + 1 == l);
    result = prefix + compressed_;
  });
  return result;
}

automation::StringArray clsImage::p_strTransmissionString(const std::string& text) {
  automation::StringArray result;
  trap(label("p_strTransmissionString"), [&] {
    automation::StringArray chunks = split_chunks(text, fmt::kChunkLength);
    if (!chunks.allocated()) return;
    for (long i = chunks.lower_bound(); i <= chunks.upper_bound(); ++i) {
      std::string escaped;
      escaped.reserve(chunks[i].size() + 4);
      for (unsigned char b : chunks[i]) {
        if (b >= fmt::kEscapedLow && b <= fmt::kEscapedHigh) {
          escaped += static_cast<char>(fmt::kEscape);
          escaped += static_cast<char>(b);
        } else {
          escaped += static_cast<char>(b ^ fmt::kFlipBit);
        }
      }
      chunks[i] = std::move(escaped);
    }
    result = std::move(chunks);
  });
  return result;
}

automation::StringArray clsImage::p_strProtocol() {
  automation::StringArray result;
  trap(label("Get p_strProtocol"), [&] {
    std::string h = numeric_record::header(numeric_record::kImage);
    std::string k = automation::format_digits(key_, "00");
    std::string head = h + k + std::string(fmt::kDescriptionSequence);
    bool empty_key = key_.is_string() ? key_.to_string() == "0" : key_.equals_number(0);
    if (empty_key) {
      result = automation::StringArray(
          {head + std::string(fmt::kDescriptionWidth, ' ') + std::string(fmt::kNoDates)});
      return;
    }
    if (!path_.empty()) {
      std::string compressed = m_strCompressBitmap(path_);
      if (!compressed.empty()) {
        automation::StringArray chunks = p_strTransmissionString(compressed);
        std::vector<std::string> records;
        records.reserve(chunks.size() + 1);
        records.push_back(head + spaces_to(description_, fmt::kDescriptionWidth) + from_ + to_);
        for (long i = 1; i <= static_cast<long>(chunks.size()); ++i) {
          std::string q =
              i < 100 ? automation::format_digits(i, 2) : std::to_string(fmt::kLastSequence);
          records.push_back(h + k + q + chunks[i]);
        }
        result = automation::StringArray(std::move(records));
        return;
      }
    }
    std::string placeholder = std::string(fmt::kPlaceholder) + key_.to_string();
    result = automation::StringArray(
        {head + spaces_to(placeholder, fmt::kDescriptionWidth) + std::string(fmt::kNoDates)});
  });
  return result;
}

}  // namespace qk
