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
#include "layout/layout_walk.h"
#include "qk/archive_tools.h"
#include "qk/host.h"

namespace qk {

namespace fmt = layout_format;
namespace a = layout_format::attribute;
using automation::Recordset;
using automation::StringArray;
using automation::Variant;

using layout::dots;
using layout::ObjectValues;
using layout::walk;

namespace {

constexpr const char* kClass = "clsLayout";
TrapLabel label(const char* procedure) {
  return {procedure, kClass};
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

// A 5000-series object message from its kind's table: positions from the ticket origin,
// magnifications written again as plain numbers, texts as stored, the flag byte as FL1..FL4; the
// kind's own attributes from `own`.
template <std::size_t N, class Own>
std::string message_5000(const fmt::Attribute (&table)[N], const ObjectValues& v, int32_t origin_x,
                         int32_t origin_y, Own&& own) {
  std::string m(fmt::kMessageOpen);
  for (const auto& at : table) {
    switch (at.carry) {
      case fmt::Carry::DotsX:
        m += attr(at.name, std::to_string(add(v.i(at.property), origin_x)));
        break;
      case fmt::Carry::DotsY:
        m += attr(at.name, std::to_string(add(v.i(at.property), origin_y)));
        break;
      case fmt::Carry::Zoom:
        m += attr(at.name, std::to_string(Variant(v.t(at.property)).to_int32()));
        break;
      case fmt::Carry::Text:
        m += attr(at.name, v.t(at.property));
        break;
      case fmt::Carry::Flags:
        m += flag_attributes(v.i(at.property));
        break;
      case fmt::Carry::Own:
        m += attr(at.name, own(at.name));
        break;
    }
  }
  return m + std::string(fmt::kMessageClose);
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
      append(result, message_5000(fmt::kText5000, v, origin_x_, origin_y_, [&](auto name) {
               if (name == a::kId) return std::to_string(object_id(ticket_, field));
               if (name == a::kFont) return std::to_string(font);
               return name == a::kDataType ? data_type : field_value;
             }));
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
      append(result, message_5000(fmt::kBarcode5000, v, origin_x_, origin_y_, [&](auto name) {
               if (name == a::kId) return std::to_string(object_id(ticket_, v.t(p::kField)));
               if (name == a::kFont) return std::to_string(v.i(p::kType));
               return std::string(fmt::kBarcodeDataType);
             }));
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
      std::string name_of_image = m_strRetrieveImageNumber2ImageName(image);
      // IMG is the only quoted value; TDA and NRC carry no value; there is no ALL.
      append(result, message_5000(fmt::kLogo5000, v, origin_x_, origin_y_, [&](auto name) {
               if (name == a::kId) return std::to_string(object_id(ticket_, v.t(p::kField)));
               if (name == a::kFieldValue) return v.t(p::kImage);
               if (name == a::kImageFile) return "\"" + name_of_image + "\"";
               if (name == a::kFont)
                 return std::string(v.i(p::kStyle) == 0 ? fmt::kLogoPlain : fmt::kLogoStyled);
               return std::string();
             }));
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
