#include "qk/clsPrinterImage.h"

#include "frame/creation.h"
#include "frame/report_error.h"
#include "images/bitmap_reader.h"
#include "images/kestra_printer_format.h"

namespace qk {

namespace fmt = kestra_printer_format;

namespace {
constexpr const char* kClass = "clsPrinterImage";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}
}  // namespace

clsPrinterImage::clsPrinterImage() {
  run_creation_sequence(kClass, kStepLoadTranslations);
}

bool clsPrinterImage::p_booImageIsValid() {
  bool valid = false;
  trap(label("p_booImageIsValid"), [&] {
    images::ByteStream stream(images::read_file_bytes(path_));
    images::HeaderScan h;
    valid = images::m_booScanBitmapHeader(stream, static_cast<int32_t>(stream.size()), h, false,
                                          kClass);
  });
  return valid;
}

automation::StringArray clsPrinterImage::p_strProtocol() {
  automation::StringArray result;
  trap(label("Get p_strProtocol"), [&] {
    images::ByteStream stream(images::read_file_bytes(path_));
    std::string data(fmt::kLeadIn, static_cast<char>(fmt::kLeadInByte));
    images::HeaderScan h;
    if (!images::m_booScanBitmapHeader(stream, static_cast<int32_t>(stream.size()), h, false,
                                       kClass))
      return;
    images::append_bitmap_rows(data, stream.rest(), h.width, h.inverted);
    std::vector<std::string> frames;
    frames.reserve(data.size() / fmt::kFrameLength + fmt::kMinimumFrames);
    for (std::size_t pos = 0; pos < data.size(); pos += fmt::kFrameLength)
      frames.push_back(data.substr(pos, fmt::kFrameLength));
    frames.back().resize(fmt::kFrameLength, '\0');
    while (static_cast<long>(frames.size()) < fmt::kMinimumFrames)
      frames.emplace_back(fmt::kFrameLength, '\0');
    for (auto& f : frames) {
      int32_t c = fmt::frame_checksum(f) % 65536;
      f += static_cast<char>(c / 256);
      f += static_cast<char>(c % 256);
    }
    result = automation::StringArray(std::move(frames), 1);
  });
  return result;
}

}  // namespace qk
