#include "qk/clsLayout.h"

#include <array>
#include <cmath>
#include <functional>

#include "automation/conversions.h"
#include "config/xml_file.h"
#include "frame/creation.h"
#include "frame/globals.h"
#include "frame/modUtility.h"
#include "frame/numeric_record.h"
#include "frame/paths.h"
#include "frame/report_error.h"
#include "layout/clsConvertion.h"
#include "layout/layout_format.h"
#include "layout/layout_receive.h"
#include "layout/layout_values.h"
#include "qk/archive_tools.h"
#include "qk/host.h"

namespace qk {

namespace fmt = layout_format;
namespace a = layout_format::attribute;
using automation::Recordset;
using automation::StringArray;
using automation::Variant;

namespace {

constexpr const char* kClass = "clsLayout";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
}

// A number as the archive writes it: a decimal comma is taken as a point.
double number(const std::string& s) {
  return Variant(modUtility::p_strCommaToPeriod(s)).to_double();
}
int32_t rounded(const std::string& s) {
  return automation::double_to_int32(number(s));
}
int32_t dots(const std::string& s) {
  return automation::double_to_int32(number(s) * fmt::kDotsPerMillimetre);
}
int32_t hex(const std::string& s) {
  return Variant("&H" + s).to_int32();
}
int32_t add(int64_t a, int64_t b) {
  return automation::checked_int32(a + b);
}
int32_t object_id(int32_t layout, const std::string& field) {
  return add(static_cast<int64_t>(layout) * fmt::kObjectsPerLayout, Variant(field).to_int32());
}
std::string digits(const Variant& v, int n) {
  return automation::format_digits(v, std::string(static_cast<std::size_t>(n), '0'));
}
std::string attr(std::string_view name, const std::string& value) {
  return " " + std::string(name) + "=" + value;
}
// FL1..FL4: bits 1, 0, 6 and 7 of the flag byte, inverted (1 = the bit is clear).
std::string flag_attributes(int32_t b) {
  std::string s;
  for (const auto& f : fmt::attribute::kFlags) s += attr(f.name, (b & f.bit) == 0 ? "1" : "0");
  return s;
}

// The property values a builder has read. They persist from one object to the next, as the
// builders keep them: an object that lacks a property repeats the previous object's value.
struct ObjectValues {
  static constexpr int kProperties = 16;
  std::array<std::string, kProperties> text;
  std::array<double, kProperties> num{};

  const std::string& t(int id) const { return text[static_cast<std::size_t>(id)]; }
  double n(int id) const { return num[static_cast<std::size_t>(id)]; }
  int32_t i(int id) const { return static_cast<int32_t>(n(id)); }

  void read(int id, const std::string& v, fmt::Read how) {
    auto k = static_cast<std::size_t>(id);
    switch (how) {
      case fmt::Read::Text:
        text[k] = v;
        break;
      case fmt::Read::Number:
        num[k] = number(v);
        break;
      case fmt::Read::Rounded:
        num[k] = rounded(v);
        break;
      case fmt::Read::Hex:
        num[k] = hex(v);
        break;
      case fmt::Read::Dots:
        num[k] = dots(v);
        break;
      case fmt::Read::FontText:
        text[k] = layout::m_RetrieveFontId(v);
        break;
      case fmt::Read::FontNumber:
        num[k] = Variant(layout::m_RetrieveFontId(v)).to_int32();
        break;
      case fmt::Read::ZoomText:
        text[k] = layout::m_RetrieveZoomId(v);
        break;
      case fmt::Read::ZoomNumber:
        num[k] = Variant(layout::m_RetrieveZoomId(v)).to_int32();
        break;
      case fmt::Read::Int16:
        num[k] = Variant(v).to_int16();
        break;
    }
  }
};

// The one walk of the layout hierarchy: every object of the kind, from the first row, its
// property rows read into `values` by the series' table (other rows skipped), then on_object.
// on_row, when given, sees each row as soon as it is read.
template <std::size_t N, class OnObject>
void walk(Recordset& layouts, int kind, const fmt::PropertyRead (&reads)[N], ObjectValues& values,
          OnObject&& on_object, const std::function<void(int)>& on_row = {}) {
  layouts.MoveFirst();
  while (!layouts.Eof()) {
    auto objects = layouts.Fields("object").as<Recordset>();
    objects->MoveFirst();
    while (!objects->Eof()) {
      if (objects->Fields("OBJ_TYPE").to_int32() == kind) {
        auto props = objects->Fields("Property").as<Recordset>();
        for (props->MoveFirst(); !props->Eof(); props->MoveNext()) {
          int id = props->Fields("Id").to_int32();
          for (const auto& r : reads)
            if (r.id == id) {
              values.read(id, props->Fields("value").to_text(), r.how);
              if (on_row) on_row(id);
            }
        }
        on_object(values);
      }
      objects->MoveNext();
    }
    layouts.MoveNext();
  }
}

// ESX, ESY and DIR of a 5000-series message: the magnifications written again as plain numbers.
std::string magnifications_and_direction(const ObjectValues& v, int width, int height,
                                         int direction) {
  return attr(a::kZoomWidth, std::to_string(Variant(v.t(width)).to_int32())) +
         attr(a::kZoomHeight, std::to_string(Variant(v.t(height)).to_int32())) +
         attr(a::kDirection, v.t(direction));
}

// The builders' growing result: a 16-bit element counter.
void append(StringArray& a, std::string s) {
  if (a.allocated() && a.size() >= 32767) automation::raise(automation::kOverflow);
  a.push_back(std::move(s));
}

std::string join(const StringArray& a) {
  std::string s;
  if (!a.allocated()) return s;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (i) s += fmt::kSeparator;
    s += a[static_cast<long>(i)];
  }
  return s;
}

StringArray split(const std::string& s) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (true) {
    auto at = s.find(fmt::kSeparator, start);
    parts.push_back(s.substr(start, at == std::string::npos ? std::string::npos : at - start));
    if (at == std::string::npos) break;
    start = at + fmt::kSeparator.size();
  }
  return StringArray(std::move(parts));
}

bool ends_with_separator(const std::string& s) {
  return s.size() >= fmt::kSeparator.size() &&
         s.compare(s.size() - fmt::kSeparator.size(), fmt::kSeparator.size(), fmt::kSeparator) == 0;
}

}  // namespace

struct clsLayout::Configuration {
  pugi::xml_document document;
};

clsLayout::clsLayout() : config_(std::make_shared<Configuration>()) {
  run_creation_sequence(kClass, kStepsWithDatabase | kStepExtra, [&] {
    // Taken afresh from the running component, not from the configured installation folder.
    m_booOpenXml(component_folder() + "/Configurazione.xml");
  });
}

bool clsLayout::m_booOpenXml(const std::string& path) {
  auto loaded = std::make_shared<Configuration>();
  bool ok = config::load_document(loaded->document, path);
  config_ = std::move(loaded);
  return ok;
}

StringArray clsLayout::p_strProtocol(int16_t intDevice) const {
  return intDevice == 2 ? array_3000_ : array_5000_;
}

std::string clsLayout::m_strHeader() const {
  return numeric_record::header(numeric_record::kLayoutHeader) + std::to_string(ticket_ - 1);
}

std::string clsLayout::m_strRetrieveImageNumber2ImageName(int32_t& image) {
  std::string result;
  trap(label("m_strRetrieveImageNumber2ImageName"),
       [&] { result = layout::image_file_name(bnc_, image); });
  return result;
}

std::string clsLayout::ticket(bool series5000) {
  namespace p = fmt::ticket;
  ObjectValues v;
  walk(
      *layout_, fmt::kTicket, fmt::kTicketReads, v, [](const ObjectValues&) {},
      [&](int id) {
        if (id == p::kOriginX) origin_x_ = v.i(p::kOriginX);
        if (id == p::kOriginY) origin_y_ = v.i(p::kOriginY);
      });
  if (series5000)
    return std::string(fmt::kMessageOpen) + attr(a::kId, std::to_string(object_id(ticket_, "0"))) +
           attr(a::kWidth, std::to_string(dots(v.t(p::kWidth)))) +
           attr(a::kHeight, std::to_string(dots(v.t(p::kHeight)))) +
           std::string(fmt::kMessageClose);
  return m_strHeader() + "00" + digits(dots(v.t(p::kWidth)), 3) + digits(dots(v.t(p::kHeight)), 4) +
         std::to_string(Variant(v.t(p::kCode)).to_int32());
}

std::string clsLayout::m_strTicketOrva3000() {
  std::string r;
  trap(label("m_strTicketOrva3000"), [&] { r = ticket(false); });
  return r;
}

std::string clsLayout::m_strTicketOrva5000() {
  std::string r;
  trap(label("m_strTicketOrva5000"), [&] { r = ticket(true); });
  return r;
}

// The record of one object for the 3000 series: field, flags, element code, X and Y, then the
// kind's own fields.
std::string clsLayout::record_3000(const std::string& field, int32_t flags,
                                   const std::string& element, int32_t x, int32_t y,
                                   const std::string& rest) const {
  return m_strHeader() + digits(Variant(field), 2) + digits(flags, 3) + element +
         digits(add(x, origin_x_), 3) + digits(add(y, origin_y_), 4) + rest;
}

// COX and COY of a 5000-series message: the position plus the ticket origin.
std::string clsLayout::position_5000(int32_t x, int32_t y) const {
  return attr(a::kX, std::to_string(add(x, origin_x_))) +
         attr(a::kY, std::to_string(add(y, origin_y_)));
}

StringArray clsLayout::m_strText() {
  namespace p = fmt::text;
  StringArray result;
  trap(label("m_strText"), [&] {
    ObjectValues v;
    walk(*layout_, fmt::kText, fmt::kText3000Reads, v, [&](const ObjectValues& v) {
      if (layout::left_out_of_3000(v.t(p::kField))) return;
      append(result,
             record_3000(
                 v.t(p::kField), v.i(p::kFlags),
                 digits(v.n(p::kDataType) + v.n(p::kFieldValue) - 1, 3), v.i(p::kX), v.i(p::kY),
                 digits(v.i(p::kFont), 2) + digits(Variant(v.t(p::kCharacters)), 3) +
                     std::to_string(v.i(p::kZoomWidth)) + std::to_string(v.i(p::kZoomHeight)) +
                     v.t(p::kDirection) + v.t(p::kAlignment) + std::to_string(v.i(p::kLastField))));
    });
  });
  return result;
}

StringArray clsLayout::m_strBarcode() {
  namespace p = fmt::barcode;
  StringArray result;
  trap(label("m_strBarcode"), [&] {
    ObjectValues v;
    walk(*layout_, fmt::kBarcode, fmt::kBarcode3000Reads, v, [&](const ObjectValues& v) {
      if (layout::left_out_of_3000(v.t(p::kField))) return;
      std::string element = v.i(p::kType) == fmt::kBarcodeType26
                                ? std::string(fmt::kBarcodeType26Element)
                                : digits(v.n(p::kFieldValue) + fmt::kBarcodeElementBase, 3);
      append(
          result,
          record_3000(v.t(p::kField), v.i(p::kFlags), element, v.i(p::kX), v.i(p::kY),
                      digits(v.i(p::kType), 2) + digits(Variant(v.t(p::kCharacters)), 3) +
                          std::to_string(v.i(p::kZoomWidth)) + std::to_string(v.i(p::kZoomHeight)) +
                          v.t(p::kDirection) + "0" + std::to_string(v.i(p::kLastField))));
    });
  });
  return result;
}

StringArray clsLayout::m_strLogo() {
  namespace p = fmt::logo;
  StringArray result;
  trap(label("m_strLogo"), [&] {
    ObjectValues v;
    walk(*layout_, fmt::kLogo, fmt::kLogo3000Reads, v, [&](const ObjectValues& v) {
      if (layout::left_out_of_3000(v.t(p::kField))) return;
      append(result,
             record_3000(v.t(p::kField), v.i(p::kFlags),
                         digits(v.n(p::kImage) + fmt::kLogoElementBase, 3), v.i(p::kX), v.i(p::kY),
                         std::string(fmt::kLogoFixedFields) + std::to_string(v.i(p::kZoomWidth)) +
                             std::to_string(v.i(p::kZoomHeight)) + v.t(p::kDirection) + "0" +
                             std::to_string(v.i(p::kLastField))));
    });
  });
  return result;
}

StringArray clsLayout::m_strTextOrva5000() {
  namespace p = fmt::text;
  StringArray result;
  trap(label("m_strTextOrva5000"), [&] {
    clsConvertion mapping;
    ObjectValues v;
    walk(*layout_, fmt::kText, fmt::kText5000Reads, v, [&](const ObjectValues& v) {
      std::string field = v.t(p::kField), stored = v.t(p::kDataType);
      std::string data_type = stored, field_value = v.t(p::kFieldValue);
      if (!fmt::sent_as_stored(automation::leading_number(stored))) {
        std::string from = "O3", to = "O5";
        data_type = mapping.ConvertValue(from, to, stored);
      }
      if (automation::leading_number(data_type) < 0) {
        host::message_box("Valore del campo#" + field + " sconosciuto!", "QK_Protocol",
                          host::kCritical);
        data_type = std::string(fmt::kUnknownDataType);
        field_value = std::string(fmt::kUnknownFieldValue);
      }
      if (automation::leading_number(data_type) == fmt::kDataTypeWithBase)
        field_value =
            std::to_string(add(Variant(v.t(p::kFieldValue)).to_int32(), fmt::kDataTypeBase));
      int32_t font = Variant(v.t(p::kFont)).to_int32();
      if (font < fmt::kFontShiftBelow) font += 1;
      append(
          result,
          std::string(fmt::kMessageOpen) + attr(a::kId, std::to_string(object_id(ticket_, field))) +
              attr(a::kFont, std::to_string(font)) + attr(a::kDataType, data_type) +
              attr(a::kFieldValue, field_value) + position_5000(v.i(p::kX), v.i(p::kY)) +
              magnifications_and_direction(v, p::kZoomWidth, p::kZoomHeight, p::kDirection) +
              attr(a::kAlignment, v.t(p::kAlignment)) + attr(a::kCharacters, v.t(p::kCharacters)) +
              flag_attributes(v.i(p::kFlags)) + std::string(fmt::kMessageClose));
    });
  });
  return result;
}

StringArray clsLayout::m_strBarcodeOrva5000() {
  namespace p = fmt::barcode;
  StringArray result;
  trap(label("m_strBarcodeOrva5000"), [&] {
    ObjectValues v;
    walk(*layout_, fmt::kBarcode, fmt::kBarcode5000Reads, v, [&](const ObjectValues& v) {
      append(result,
             std::string(fmt::kMessageOpen) +
                 attr(a::kId, std::to_string(object_id(ticket_, v.t(p::kField)))) +
                 attr(a::kFont, std::to_string(v.i(p::kType))) +
                 attr(a::kDataType, std::string(fmt::kBarcodeDataType)) +
                 position_5000(v.i(p::kX), v.i(p::kY)) + attr(a::kFieldValue, v.t(p::kFieldValue)) +
                 magnifications_and_direction(v, p::kZoomWidth, p::kZoomHeight, p::kDirection) +
                 attr(a::kAlignment, v.t(p::kAlignment)) +
                 attr(a::kCharacters, v.t(p::kCharacters)) + flag_attributes(v.i(p::kFlags)) +
                 std::string(fmt::kMessageClose));
    });
  });
  return result;
}

StringArray clsLayout::m_strLogoOrva5000() {
  namespace p = fmt::logo;
  StringArray result;
  trap(label("m_strLogoOrva5000"), [&] {
    ObjectValues v;
    walk(*layout_, fmt::kLogo, fmt::kLogo5000Reads, v, [&](const ObjectValues& v) {
      int32_t image = Variant(v.t(p::kImage)).to_int32();
      std::string name = m_strRetrieveImageNumber2ImageName(image);
      // IMG is the only quoted value; TDA and NRC carry no value; there is no ALL.
      append(result,
             std::string(fmt::kMessageOpen) +
                 attr(a::kId, std::to_string(object_id(ticket_, v.t(p::kField)))) +
                 attr(a::kFieldValue, v.t(p::kImage)) + attr(a::kImageFile, "\"" + name + "\"") +
                 attr(a::kFont,
                      std::string(v.i(p::kStyle) == 0 ? fmt::kLogoPlain : fmt::kLogoStyled)) +
                 attr(a::kDataType, "") + position_5000(v.i(p::kX), v.i(p::kY)) +
                 magnifications_and_direction(v, p::kZoomWidth, p::kZoomHeight, p::kDirection) +
                 attr(a::kCharacters, "") + flag_attributes(v.i(p::kFlags)) +
                 std::string(fmt::kMessageClose));
    });
  });
  return result;
}

bool clsLayout::p_booRetrieveData() {
  bool done = false;
  trap(label("p_booRetrieveData"), [&] {
    std::string t50 = std::string(fmt::kDeleteOpen) + std::to_string(object_id(ticket_, "0")) +
                      std::string(fmt::kDeleteClose) + std::string(fmt::kSeparator);
    layout_ = db().p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(bnc_, ticket_);
    if (layout_->Eof()) return;  // the previous arrays stay
    // The ticket builders run first: they set the origins the objects are placed from.
    std::string t30 = m_strTicketOrva3000() + std::string(fmt::kSeparator);
    t50 += m_strTicketOrva5000() + std::string(fmt::kSeparator);
    std::string texts = join(m_strText()), texts50 = join(m_strTextOrva5000());
    t30 += texts;
    t50 += texts50;
    auto add_kind = [](std::string& t, const std::string& joined) {
      if (joined.empty()) return;
      if (!ends_with_separator(t)) t += fmt::kSeparator;
      t += joined;
    };
    add_kind(t30, join(m_strBarcode()));
    add_kind(t50, join(m_strBarcodeOrva5000()));
    add_kind(t30, join(m_strLogo()));
    add_kind(t50, join(m_strLogoOrva5000()));
    array_3000_ = split(t30);
    array_5000_ = split(t50);
    max_3000_ = array_3000_.upper_bound();
    max_5000_ = array_5000_.upper_bound();
    done = true;
  });
  return done;
}

std::string clsLayout::p_strMakeReceiveRequest(const std::string& strLayoutNumber,
                                               const std::string& strObjectNumber) {
  std::string result;
  trap(label("p_strMakeReceiveRequest"), [&] {
    result = numeric_record::header(numeric_record::kLayoutReceiveRequest) +
             automation::format_digits(Variant(strLayoutNumber), fmt::kRequestLayoutDigits) +
             automation::format_digits(Variant(strObjectNumber), fmt::kRequestObjectDigits);
  });
  return result;
}

void clsLayout::p_ParseReceivedMessage(const std::string& strMessage) {
  receive(strMessage, false, "p_ParseReceivedMessage");
}

void clsLayout::p_ParseReceivedMessageO50(const std::string& strMessage) {
  receive(strMessage, true, "p_ParseReceivedMessageO50");
}

void clsLayout::receive(const std::string& text, bool series5000, const char* procedure) {
  receipt_ = {};
  trap(label(procedure), [&] {
    clsConvertion mapping;
    layout::Lookups lookups{config_->document, mapping, [&](const std::string& name) {
                              return int32_t{db().p_IMMAGINI_intRetrieveIdFromFileName(bnc_, name)};
                            }};
    int32_t source = ticket_ != 0 ? ticket_ : import_;
    int32_t target = import_ != 0 ? import_ : ticket_;
    layout::ReceivedLayout got = series5000 ? layout::read_5000(text, source, lookups)
                                            : layout::read_3000(text, source, lookups);
    for (const auto& o : got.objects) {
      receipt_.texts += o.kind == fmt::kText;
      receipt_.barcodes += o.kind == fmt::kBarcode;
      receipt_.logos += o.kind == fmt::kLogo;
    }
    receipt_.notes = got.notes;
    if (dry_run_) return;
    // One transaction when the archive offers them: never half a layout.
    auto* tools = dynamic_cast<ArchiveTools*>(&db());
    if (tools) tools->begin_write();
    try {
      db().p_TICKET_InsertValues(
          bnc_, target,
          "received from a scale" + (line_ ? " on line " + std::to_string(line_) : std::string()),
          true);
      int32_t object = 0;
      for (const auto& o : got.objects) {
        ++object;
        db().p_TICKET_DETAIL_InsertValues(bnc_, target, object, "OBJ_TYPE", o.kind);
        for (const auto& [id, value] : o.properties)
          db().p_TICKET_DETAIL_InsertValues(bnc_, target, object, id, value);
      }
      if (tools) tools->commit();
    } catch (...) {
      if (tools) tools->rollback();
      throw;
    }
    receipt_.stored = true;
  });
}

}  // namespace qk
