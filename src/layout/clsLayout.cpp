#include "qk/clsLayout.h"

#include <cmath>

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
#include "layout/layout_values.h"
#include "qk/host.h"

namespace qk {

namespace fmt = layout_format;
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
  int64_t r = a + b;
  if (r < INT32_MIN || r > INT32_MAX) automation::raise(automation::kOverflow);
  return static_cast<int32_t>(r);
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
  auto clear = [&](int bit) { return (b & bit) == 0 ? "1" : "0"; };
  return attr("FL1", clear(2)) + attr("FL2", clear(1)) + attr("FL3", clear(64)) +
         attr("FL4", clear(128));
}

// Every object of one kind in the layout hierarchy, with its property rows from the first.
template <class OnObject>
void walk(Recordset& layouts, int kind, OnObject&& on_object) {
  layouts.MoveFirst();
  while (!layouts.Eof()) {
    auto objects = layouts.Fields("object").as<Recordset>();
    objects->MoveFirst();
    while (!objects->Eof()) {
      if (objects->Fields("OBJ_TYPE").to_int32() == kind) {
        auto props = objects->Fields("Property").as<Recordset>();
        props->MoveFirst();
        on_object(*props);
      }
      objects->MoveNext();
    }
    layouts.MoveNext();
  }
}

template <class OnProperty>
void each_property(Recordset& props, OnProperty&& on_property) {
  for (; !props.Eof(); props.MoveNext())
    on_property(props.Fields("Id").to_int32(), props.Fields("value").to_text());
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

clsLayout::clsLayout() {
  run_creation_sequence(kClass, kStepsWithDatabase | kStepExtra, [&] {
    // Taken afresh from the running component, not from the configured installation folder.
    m_booOpenXml(component_folder() + "/Configurazione.xml");
  });
}

bool clsLayout::m_booOpenXml(const std::string& path) {
  return config::load_document(config_, path);
}

StringArray clsLayout::p_strProtocol(int16_t intDevice) const {
  return intDevice == 2 ? array_3000_ : array_5000_;
}

std::string clsLayout::m_strHeader() const {
  return numeric_record::header(numeric_record::kLayoutHeader) + std::to_string(ticket_ - 1);
}

std::string clsLayout::m_strRetrieveImageNumber2ImageName(int32_t& image) {
  std::string result;
  trap(label("m_strRetrieveImageNumber2ImageName"), [&] {
    result = std::to_string(image);
    auto rs = db().p_IMMAGINI_objLoadValues(bnc_, image);
    if (!rs->Eof()) result = rs->Fields("IM_FILE_NAME").to_text();
  });
  return result;
}

std::string clsLayout::ticket(bool series5000) {
  std::string height, width, code;
  walk(*layout_, fmt::kTicket, [&](Recordset& props) {
    each_property(props, [&](int id, const std::string& v) {
      switch (id) {
        case 1:
          height = v;
          break;
        case 2:
          code = v;
          break;
        case 5:
          width = v;
          break;
        case 6:
          origin_x_ = dots(v);
          break;
        case 7:
          origin_y_ = dots(v);
          break;
      }
    });
  });
  if (series5000)
    return std::string(fmt::kMessageOpen) + attr("ID", std::to_string(object_id(ticket_, "0"))) +
           attr("DIX", std::to_string(dots(width))) + attr("DIY", std::to_string(dots(height))) +
           std::string(fmt::kMessageClose);
  return m_strHeader() + "00" + digits(dots(width), 3) + digits(dots(height), 4) +
         std::to_string(Variant(code).to_int32());
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

StringArray clsLayout::m_strText() {
  StringArray result;
  trap(label("m_strText"), [&] {
    // Kept across objects of the walk: a missing property repeats the previous object's value.
    std::string p0, p1, p2, p9;
    int32_t flags = 0, x = 0, y = 0, font = 0, zoom13 = 0, zoom14 = 0, p8 = 0;
    double p4 = 0, p10 = 0;
    walk(*layout_, fmt::kText, [&](Recordset& props) {
      each_property(props, [&](int id, const std::string& v) {
        switch (id) {
          case 0:
            p0 = v;
            break;
          case 1:
            p1 = v;
            break;
          case 2:
            p2 = v;
            break;
          case 3:
            flags = hex(v);
            break;
          case 4:
            p4 = number(v);
            break;
          case 5:
            font = Variant(layout::m_RetrieveFontId(v)).to_int32();
            break;
          case 7:
            x = dots(v);
            break;
          case 8:
            p8 = rounded(v);
            break;
          case 9:
            p9 = v;
            break;
          case 10:
            p10 = number(v);
            break;
          case 11:
            y = dots(v);
            break;
          case 13:
            zoom13 = Variant(layout::m_RetrieveZoomId(v)).to_int32();
            break;
          case 14:
            zoom14 = Variant(layout::m_RetrieveZoomId(v)).to_int32();
            break;
        }
      });
      if (modUtility::p_lngNumericValue(p0) > fmt::kMaxFieldNumber3000) return;
      append(result, m_strHeader() + digits(Variant(p0), 2) + digits(flags, 3) +
                         digits(p4 + p10 - 1, 3) + digits(add(x, origin_x_), 3) +
                         digits(add(y, origin_y_), 4) + digits(font, 2) + digits(Variant(p2), 3) +
                         std::to_string(zoom14) + std::to_string(zoom13) + p9 + p1 +
                         std::to_string(p8));
    });
  });
  return result;
}

StringArray clsLayout::m_strBarcode() {
  StringArray result;
  trap(label("m_strBarcode"), [&] {
    std::string p0, p3, p8;
    int32_t type = 0, flags = 0, x = 0, y = 0, zoom11 = 0, zoom12 = 0, p7 = 0;
    double p15 = 0;
    walk(*layout_, fmt::kBarcode, [&](Recordset& props) {
      each_property(props, [&](int id, const std::string& v) {
        switch (id) {
          case 0:
            p0 = v;
            break;
          case 2:
            type = rounded(v);
            break;
          case 3:
            p3 = v;
            break;
          case 4:
            flags = hex(v);
            break;
          case 6:
            x = dots(v);
            break;
          case 7:
            p7 = rounded(v);
            break;
          case 8:
            p8 = v;
            break;
          case 9:
            y = dots(v);
            break;
          case 11:
            zoom11 = Variant(layout::m_RetrieveZoomId(v)).to_int32();
            break;
          case 12:
            zoom12 = Variant(layout::m_RetrieveZoomId(v)).to_int32();
            break;
          case 15:
            p15 = number(v);
            break;
        }
      });
      if (modUtility::p_lngNumericValue(p0) > fmt::kMaxFieldNumber3000) return;
      std::string element = type == fmt::kBarcodeType26 ? std::string(fmt::kBarcodeType26Element)
                                                        : digits(p15 + fmt::kBarcodeElementBase, 3);
      append(result, m_strHeader() + digits(Variant(p0), 2) + digits(flags, 3) + element +
                         digits(add(x, origin_x_), 3) + digits(add(y, origin_y_), 4) +
                         digits(type, 2) + digits(Variant(p3), 3) + std::to_string(zoom12) +
                         std::to_string(zoom11) + p8 + "0" + std::to_string(p7));
    });
  });
  return result;
}

StringArray clsLayout::m_strLogo() {
  StringArray result;
  trap(label("m_strLogo"), [&] {
    std::string p0, p7;
    int32_t flags = 0, x = 0, y = 0, zoom10 = 0, zoom11 = 0, p6 = 0;
    double image = 0;
    walk(*layout_, fmt::kLogo, [&](Recordset& props) {
      each_property(props, [&](int id, const std::string& v) {
        switch (id) {
          case 0:
            p0 = v;
            break;
          case 2:
            flags = hex(v);
            break;
          case 4:
            x = dots(v);
            break;
          case 5:
            image = number(v);
            break;
          case 6:
            p6 = rounded(v);
            break;
          case 7:
            p7 = v;
            break;
          case 8:
            y = dots(v);
            break;
          case 10:
            zoom10 = Variant(layout::m_RetrieveZoomId(v)).to_int32();
            break;
          case 11:
            zoom11 = Variant(layout::m_RetrieveZoomId(v)).to_int32();
            break;
        }
      });
      if (modUtility::p_lngNumericValue(p0) > fmt::kMaxFieldNumber3000) return;
      append(result, m_strHeader() + digits(Variant(p0), 2) + digits(flags, 3) +
                         digits(image + fmt::kLogoElementBase, 3) + digits(add(x, origin_x_), 3) +
                         digits(add(y, origin_y_), 4) + "99" + "000" + std::to_string(zoom11) +
                         std::to_string(zoom10) + p7 + "0" + std::to_string(p6));
    });
  });
  return result;
}

StringArray clsLayout::m_strTextOrva5000() {
  StringArray result;
  trap(label("m_strTextOrva5000"), [&] {
    clsConvertion mapping;
    std::string p0, p1, p2, p4, p9, p10, zoom13, zoom14;
    std::string font;
    int32_t flags = 0, x = 0, y = 0;
    [[maybe_unused]] int32_t p8 = 0;
    walk(*layout_, fmt::kText, [&](Recordset& props) {
      each_property(props, [&](int id, const std::string& v) {
        switch (id) {
          case 0:
            p0 = v;
            break;
          case 1:
            p1 = v;
            break;
          case 2:
            p2 = v;
            break;
          case 3:
            flags = hex(v);
            break;
          case 4:
            p4 = v;
            break;
          case 5:
            font = layout::m_RetrieveFontId(v);
            break;
          case 7:
            x = dots(v);
            break;
          case 8:
            p8 = rounded(v);
            break;
          case 9:
            p9 = v;
            break;
          case 10:
            p10 = v;
            break;
          case 11:
            y = dots(v);
            break;
          case 13:
            zoom13 = layout::m_RetrieveZoomId(v);
            break;
          case 14:
            zoom14 = layout::m_RetrieveZoomId(v);
            break;
        }
      });
      std::string data_type = p4, field_value = p10;
      double stored = automation::leading_number(p4);
      bool raw = false;
      for (int t : fmt::kRawDataTypes) raw = raw || stored == t;
      if (!raw) {
        std::string from = "O3", to = "O5";
        data_type = mapping.ConvertValue(from, to, p4);
      }
      if (automation::leading_number(data_type) < 0) {
        host::message_box("Valore del campo#" + p0 + " sconosciuto!", "QK_Protocol",
                          host::kCritical);
        data_type = std::string(fmt::kUnknownDataType);
        field_value = std::string(fmt::kUnknownFieldValue);
      }
      if (automation::leading_number(data_type) == fmt::kDataTypeWithBase)
        field_value = std::to_string(add(Variant(p10).to_int32(), fmt::kDataTypeBase));
      int32_t tca = Variant(font).to_int32();
      if (tca < fmt::kFontShiftBelow) tca += 1;
      append(result, std::string(fmt::kMessageOpen) +
                         attr("ID", std::to_string(object_id(ticket_, p0))) +
                         attr("TCA", std::to_string(tca)) + attr("TDA", data_type) +
                         attr("NRG", field_value) + attr("COX", std::to_string(add(x, origin_x_))) +
                         attr("COY", std::to_string(add(y, origin_y_))) +
                         attr("ESX", std::to_string(Variant(zoom14).to_int32())) +
                         attr("ESY", std::to_string(Variant(zoom13).to_int32())) + attr("DIR", p9) +
                         attr("ALL", p1) + attr("NRC", p2) + flag_attributes(flags) +
                         std::string(fmt::kMessageClose));
    });
  });
  return result;
}

StringArray clsLayout::m_strBarcodeOrva5000() {
  StringArray result;
  trap(label("m_strBarcodeOrva5000"), [&] {
    std::string p0, p1, p3, p8, p15, zoom11, zoom12;
    int32_t type = 0, flags = 0, x = 0, y = 0;
    [[maybe_unused]] int32_t p7 = 0;
    walk(*layout_, fmt::kBarcode, [&](Recordset& props) {
      each_property(props, [&](int id, const std::string& v) {
        switch (id) {
          case 0:
            p0 = v;
            break;
          case 1:
            p1 = v;
            break;
          case 2:
            type = rounded(v);
            break;
          case 3:
            p3 = v;
            break;
          case 4:
            flags = hex(v);
            break;
          case 6:
            x = dots(v);
            break;
          case 7:
            p7 = rounded(v);
            break;
          case 8:
            p8 = v;
            break;
          case 9:
            y = dots(v);
            break;
          case 11:
            zoom11 = layout::m_RetrieveZoomId(v);
            break;
          case 12:
            zoom12 = layout::m_RetrieveZoomId(v);
            break;
          case 15:
            p15 = v;
            break;
        }
      });
      append(result, std::string(fmt::kMessageOpen) +
                         attr("ID", std::to_string(object_id(ticket_, p0))) +
                         attr("TCA", std::to_string(type)) +
                         attr("TDA", std::string(fmt::kBarcodeDataType)) +
                         attr("COX", std::to_string(add(x, origin_x_))) +
                         attr("COY", std::to_string(add(y, origin_y_))) + attr("NRG", p15) +
                         attr("ESX", std::to_string(Variant(zoom12).to_int32())) +
                         attr("ESY", std::to_string(Variant(zoom11).to_int32())) + attr("DIR", p8) +
                         attr("ALL", p1) + attr("NRC", p3) + flag_attributes(flags) +
                         std::string(fmt::kMessageClose));
    });
  });
  return result;
}

StringArray clsLayout::m_strLogoOrva5000() {
  StringArray result;
  trap(label("m_strLogoOrva5000"), [&] {
    std::string p0, p5, p7, zoom10, zoom11;
    int32_t flags = 0, x = 0, y = 0;
    int16_t p14 = 0;
    [[maybe_unused]] int32_t p6 = 0;
    walk(*layout_, fmt::kLogo, [&](Recordset& props) {
      each_property(props, [&](int id, const std::string& v) {
        switch (id) {
          case 0:
            p0 = v;
            break;
          case 2:
            flags = hex(v);
            break;
          case 4:
            x = dots(v);
            break;
          case 5:
            p5 = v;
            break;
          case 6:
            p6 = rounded(v);
            break;
          case 7:
            p7 = v;
            break;
          case 8:
            y = dots(v);
            break;
          case 10:
            zoom10 = layout::m_RetrieveZoomId(v);
            break;
          case 11:
            zoom11 = layout::m_RetrieveZoomId(v);
            break;
          case 14:
            p14 = Variant(v).to_int16();
            break;
        }
      });
      int32_t image = Variant(p5).to_int32();
      std::string name = m_strRetrieveImageNumber2ImageName(image);
      // IMG is the only quoted value; TDA and NRC carry no value; there is no ALL.
      append(result, std::string(fmt::kMessageOpen) +
                         attr("ID", std::to_string(object_id(ticket_, p0))) + attr("NRG", p5) +
                         attr("IMG", "\"" + name + "\"") + attr("TCA", p14 == 0 ? "99" : "98") +
                         attr("TDA", "") + attr("COX", std::to_string(add(x, origin_x_))) +
                         attr("COY", std::to_string(add(y, origin_y_))) +
                         attr("ESX", std::to_string(Variant(zoom11).to_int32())) +
                         attr("ESY", std::to_string(Variant(zoom10).to_int32())) + attr("DIR", p7) +
                         attr("NRC", "") + flag_attributes(flags) +
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
    result = numeric_record::header(numeric_record::kLayoutReceiveRequest) + strLayoutNumber +
             strObjectNumber;
  });
  return result;
}

void clsLayout::p_ParseReceivedMessage(const std::string&) {
  trap(label("p_ParseReceivedMessage"), [] { automation::raise(automation::kMemberNotSupported); });
}

void clsLayout::p_ParseReceivedMessageO50(const std::string&) {
  trap(label("p_ParseReceivedMessageO50"),
       [] { automation::raise(automation::kMemberNotSupported); });
}

}  // namespace qk
