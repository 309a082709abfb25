// libFuzzer target: the bitmap reader, the repacker and the three decoders never crash.
#include <cstdint>
#include <string>

#include "frame/globals.h"
#include "images/bitmap_reader.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/pictures.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool once = [] {
    qk::host::set_message_box([](const std::string&, const std::string&, int) { return 1; });
    qk::globals().booSilent = true;
    return true;
  }();
  (void)once;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  qk::images::ByteStream s(bytes);
  qk::images::HeaderScan h;
  if (qk::images::m_booScanBitmapHeader(s, static_cast<int32_t>(size), h, size % 2 == 0,
                                        "clsImage") &&
      h.width > 0 && h.width < 100000)
    qk::images::m_strBitmap2Scales(s.rest(), h.width, h.inverted);
  std::vector<std::string> records;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= bytes.size(); ++i)
    if (i == bytes.size() || bytes[i] == '\n') {
      records.push_back(bytes.substr(start, i - start));
      start = i + 1;
    }
  for (int kind = 0; kind < 3; ++kind) {
    try {
      if (kind == 0)
        qk::images::decode_scale_records(records);
      else if (kind == 1)
        qk::images::decode_kestra_records(records);
      else
        qk::images::decode_printer_frames(records, 64);
    } catch (const qk::automation::Error&) {
    }
  }
  return 0;
}
