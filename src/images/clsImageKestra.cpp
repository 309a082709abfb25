#include "qk/clsImageKestra.h"

#include "automation/conversions.h"
#include "frame/creation.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"
#include "images/bitmap_reader.h"
#include "images/kestra_printer_format.h"

namespace qk {

namespace fmt = kestra_printer_format;

namespace {
constexpr const char* kClass = "clsImageKestra";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}
}  // namespace

clsImageKestra::clsImageKestra() {
  run_creation_sequence(kClass, kStepsWithDatabase);
}

automation::StringArray clsImageKestra::m_strBitmap(const std::string& path) {
  automation::StringArray result;
  trap(label("m_strBitmap"), [&] {
    images::ByteStream stream(images::read_file_bytes(path));
    images::HeaderScan h;
    if (!images::m_booScanBitmapHeader(stream, static_cast<int32_t>(stream.size()), h, true,
                                       kClass))
      return;
    std::string b = images::m_strBitmap2Scales(stream.rest(), h.width, h.inverted);
    std::size_t r = static_cast<std::size_t>(h.width / 8 + (h.width % 8 != 0 ? 1 : 0));
    if (r == 0 || b.empty()) return;
    static const char* hex = "0123456789ABCDEF";
    std::vector<std::string> rows;
    rows.reserve(b.size() / r + 1);
    for (std::size_t pos = 0; pos < b.size(); pos += r) {
      std::string text;
      text.reserve(2 * r);
      for (std::size_t i = pos; i < std::min(pos + r, b.size()); ++i) {
        unsigned char c = static_cast<unsigned char>(b[i]);
        text += hex[c >> 4];
        text += hex[c & 15];
      }
      text.resize(fmt::kRowHexDigits, '0');  // cut wider rows, zero-fill narrower ones
      rows.push_back(std::move(text));
    }
    result = automation::StringArray(std::move(rows), 1);
  });
  return result;
}

automation::StringArray clsImageKestra::p_strProtocol() {
  automation::StringArray result;
  trap(label("Get p_strProtocol"), [&] {
    automation::StringArray rows = m_strBitmap(path_);
    std::string h =
        numeric_record::header(numeric_record::kImage) + automation::format_digits(key_, "00");
    long lo = rows.lower_bound(), hi = rows.upper_bound();  // error 9 when refused
    std::vector<std::string> records;
    records.reserve(rows.size() + 1);
    for (long i = lo; i <= hi; ++i)
      records.push_back(h + automation::format_digits(i, 3) + rows[i]);
    records.push_back(h + std::string(fmt::kEndRecord));
    result = automation::StringArray(std::move(records), lo);
  });
  return result;
}

}  // namespace qk
