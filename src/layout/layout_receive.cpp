#include "layout/layout_receive.h"

#include <climits>
#include <map>

#include "automation/conversions.h"
#include "frame/numeric_record.h"
#include "layout/clsConvertion.h"
#include "layout/layout_format.h"
#include "layout/layout_values.h"
#include "qk/error.h"

namespace qk::layout {

namespace fmt = layout_format;
namespace a = layout_format::attribute;

namespace {

[[noreturn]] void refuse(const std::string& where, const std::string& why) {
  automation::raise(automation::kInvalidProcedureCall, where + ": " + why);
}

int32_t whole(const std::string& where, const std::string& what, const std::string& text) {
  if (text.empty() || text.find_first_not_of("-0123456789") != std::string::npos)
    refuse(where, what + " \"" + text + "\" is not a whole number");
  double d = 0;
  try {
    d = automation::parse_number(text);
  } catch (const automation::Error&) {
    refuse(where, what + " \"" + text + "\" is not a whole number");
  }
  // Compared as a double first: a number of twenty digits has no 64-bit form either.
  if (!(d >= INT32_MIN && d <= INT32_MAX))
    refuse(where, what + " \"" + text + "\" does not fit 32 bits");
  return static_cast<int32_t>(d);
}

// Dots back to millimetres (the received layout's origin is 0: the scale counts from its edge).
std::string millimetres(int32_t dots) {
  return automation::double_to_text(static_cast<double>(dots) / fmt::kDotsPerMillimetre);
}

std::string hex_byte(int32_t v) {
  static const char* digits = "0123456789ABCDEF";
  std::string s;
  do {
    s.insert(s.begin(), digits[v & 15]);
    v >>= 4;
  } while (v > 0);
  return s;
}

class Reader {
 public:
  Reader(Lookups& l, ReceivedLayout& out) : l_(l), out_(out) {}

  void set(ReceivedObject& o, int id, std::string value) {
    o.properties.emplace_back(id, std::move(value));
  }
  // A font or magnification through Configurazione.xml; 0 (and a note) when not listed.
  int32_t font(const std::string& where, int32_t scale_font) {
    pugi::xml_node n = m_varFindValue(l_.configuration, "TEXT", "ID", "5");
    int32_t id = m_lngConvertFontId(n, scale_font);
    if (id == 0)
      note(where,
           "font " + std::to_string(scale_font) + " is not in Configurazione.xml; stored as 0");
    return id;
  }
  int32_t zoom(const std::string& where, const char* kind, int property, int32_t scale_zoom) {
    pugi::xml_node n = m_varFindValue(l_.configuration, kind, "ID", std::to_string(property));
    int32_t id = m_lngConvertZoomId(n, scale_zoom);
    if (id == 0)
      note(where, "magnification " + std::to_string(scale_zoom) +
                      " is not in Configurazione.xml; stored as 0");
    return id;
  }
  // `whole`: the requested value is a whole data type (5000), not data type + field value - 1.
  int32_t data_type(const std::string& where, int32_t requested, bool whole) {
    pugi::xml_node n = m_varFindValue(l_.configuration, "TEXT", "ID", "4");
    int32_t value = requested;
    int32_t snapped = m_lngRetrieveNearestFieldValue(n, value);
    if (snapped == 0)
      note(where, "no data type listed in Configurazione.xml is " + std::to_string(requested) +
                      " or below; stored as 0");
    else if (whole && snapped != requested)
      note(where, "data type " + std::to_string(requested) + " stored as " +
                      std::to_string(snapped) + " (the nearest listed value below it)");
    return snapped;
  }
  void note(const std::string& where, const std::string& text) {
    out_.notes.push_back(where + ": " + text);
  }
  Lookups& lookups() { return l_; }

 private:
  Lookups& l_;
  ReceivedLayout& out_;
};

std::vector<std::string> split_records(const std::string& s) {
  std::vector<std::string> out;
  std::string cur;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s.compare(i, fmt::kSeparator.size(), fmt::kSeparator) == 0) {
      out.push_back(cur);
      cur.clear();
      i += fmt::kSeparator.size() - 1;
    } else if (s[i] == '\r' || s[i] == '\n') {
      out.push_back(cur);
      cur.clear();
    } else {
      cur += s[i];
    }
  }
  out.push_back(cur);
  std::erase(out, std::string());
  return out;
}

ReceivedObject ticket_object(int32_t width_dots, int32_t height_dots, const std::string& code) {
  namespace p = fmt::ticket;
  ReceivedObject o{fmt::kTicket, {}};
  o.properties = {{p::kHeight, millimetres(height_dots)},
                  {p::kCode, code},
                  {p::kWidth, millimetres(width_dots)},
                  {p::kOriginX, "0"},
                  {p::kOriginY, "0"}};
  return o;
}

// The 3000 object records all have this shape after the header.
constexpr std::size_t kObjectBody = 25;

}  // namespace

ReceivedLayout read_3000(const std::string& records, int32_t source, Lookups& l) {
  ReceivedLayout out;
  Reader r(l, out);
  std::string header = numeric_record::header(numeric_record::kLayoutHeader) +
                       std::to_string(static_cast<int64_t>(source) - 1);
  auto list = split_records(records);
  if (list.empty()) refuse("the layout", "no records");
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::string where = "record " + std::to_string(i + 1);
    const std::string& rec = list[i];
    if (rec.compare(0, header.size(), header) != 0)
      refuse(where,
             "does not start with " + header + ", the header of layout " + std::to_string(source));
    std::string b = rec.substr(header.size());
    if (i == 0) {
      // The ticket: "00", width (3), height (4), code. Widths are taken as exact: the code has
      // no width of its own, so a wider width or height cannot be told from it.
      if (b.size() < 10 || b.compare(0, 2, "00") != 0)
        refuse(where, "the first record must be the ticket (\"00\", width, height, code)");
      out.objects.push_back(ticket_object(whole(where, "the width", b.substr(2, 3)),
                                          whole(where, "the height", b.substr(5, 4)),
                                          std::to_string(whole(where, "the code", b.substr(9)))));
      continue;
    }
    if (b.size() != kObjectBody)
      refuse(where,
             std::to_string(b.size()) + " characters after the header where " +
                 std::to_string(kObjectBody) +
                 " are expected: a value is wider than its field (a position of 125 mm or "
                 "more, a magnification of 10 or more) and the record cannot be split safely");
    auto field = [&](std::size_t at, std::size_t n, const char* what) {
      return whole(where, what, b.substr(at, n));
    };
    int32_t number = field(0, 2, "the field number");
    int32_t flags = field(2, 3, "the flags");
    int32_t element = field(5, 3, "the element");
    int32_t x = field(8, 3, "X"), y = field(11, 4, "Y");
    std::string a = b.substr(15, 2), c = b.substr(17, 3);
    int32_t zw = field(20, 1, "the width magnification"),
            zh = field(21, 1, "the height magnification");
    std::string dir = b.substr(22, 1), align = b.substr(23, 1);
    int32_t last = field(24, 1, "the last field");
    bool zero = align == "0";
    ReceivedObject o;
    if (zero && a == fmt::kLogoPlain && c == "000" && element >= fmt::kLogoElementBase) {
      namespace p = fmt::logo;
      o.kind = fmt::kLogo;
      r.set(o, p::kField, std::to_string(number));
      r.set(o, p::kFlags, hex_byte(flags));
      r.set(o, p::kX, millimetres(x));
      r.set(o, p::kImage, std::to_string(element - fmt::kLogoElementBase));
      r.set(o, p::kLastField, std::to_string(last));
      r.set(o, p::kDirection, dir);
      r.set(o, p::kY, millimetres(y));
      r.set(o, p::kZoomHeight, std::to_string(r.zoom(where, "LOGO", p::kZoomHeight, zh)));
      r.set(o, p::kZoomWidth, std::to_string(r.zoom(where, "LOGO", p::kZoomWidth, zw)));
      r.set(o, p::kStyle, "0");
    } else if (zero && (std::to_string(element) == fmt::kBarcodeType26Element ||
                        (element > fmt::kBarcodeElementBase && element < fmt::kLogoElementBase))) {
      namespace p = fmt::barcode;
      o.kind = fmt::kBarcode;
      int32_t type = whole(where, "the barcode type", a);
      r.set(o, p::kField, std::to_string(number));
      r.set(o, p::kType, std::to_string(type));
      r.set(o, p::kCharacters, std::to_string(whole(where, "the characters", c)));
      r.set(o, p::kFlags, hex_byte(flags));
      r.set(o, p::kX, millimetres(x));
      r.set(o, p::kLastField, std::to_string(last));
      r.set(o, p::kDirection, dir);
      r.set(o, p::kY, millimetres(y));
      r.set(o, p::kZoomHeight, std::to_string(r.zoom(where, "BARCODE", p::kZoomHeight, zh)));
      r.set(o, p::kZoomWidth, std::to_string(r.zoom(where, "BARCODE", p::kZoomWidth, zw)));
      // Type 26 sends no field value (133 stands instead): stored as 0.
      r.set(o, p::kFieldValue,
            std::to_string(type == fmt::kBarcodeType26 ? 0 : element - fmt::kBarcodeElementBase));
    } else {
      namespace p = fmt::text;
      o.kind = fmt::kText;
      // The element is data type + field value - 1: the data type is the nearest listed value.
      int32_t type = r.data_type(where, element, false);
      r.set(o, p::kField, std::to_string(number));
      r.set(o, p::kAlignment, align);
      r.set(o, p::kCharacters, std::to_string(whole(where, "the characters", c)));
      r.set(o, p::kFlags, hex_byte(flags));
      r.set(o, p::kDataType, std::to_string(type));
      r.set(o, p::kFont, std::to_string(r.font(where, whole(where, "the font", a))));
      r.set(o, p::kX, millimetres(x));
      r.set(o, p::kLastField, std::to_string(last));
      r.set(o, p::kDirection, dir);
      r.set(o, p::kFieldValue, std::to_string(element - type + 1));
      r.set(o, p::kY, millimetres(y));
      r.set(o, p::kZoomHeight, std::to_string(r.zoom(where, "TEXT", p::kZoomHeight, zh)));
      r.set(o, p::kZoomWidth, std::to_string(r.zoom(where, "TEXT", p::kZoomWidth, zw)));
    }
    out.objects.push_back(std::move(o));
  }
  return out;
}

namespace {

struct Message {
  std::string where;
  std::map<std::string, std::string> attributes;  // names as received
  std::vector<std::string> order;
};

std::vector<Message> split_messages(const std::string& s) {
  std::vector<Message> out;
  std::size_t at = 0;
  for (int n = 1;; ++n) {
    std::size_t open = s.find("<MSG", at);
    if (open == std::string::npos) {
      if (s.find_first_not_of(" \r\n@#", at) != std::string::npos)
        refuse("after message " + std::to_string(n - 1), "text that is not a message");
      break;
    }
    Message m{"message " + std::to_string(n), {}, {}};
    std::size_t i = open + 4;
    while (true) {
      while (i < s.size() && s[i] == ' ') ++i;
      if (i >= s.size()) refuse(m.where, "cut short (no \"/>\")");
      if (s.compare(i, 2, "/>") == 0) {
        i += 2;
        break;
      }
      std::size_t eq = s.find('=', i);
      std::size_t stop = s.find_first_of(" /", i);
      if (eq == std::string::npos || (stop != std::string::npos && stop < eq))
        refuse(m.where, "an attribute without \"=\" near \"" + s.substr(i, 12) + "\"");
      std::string name = s.substr(i, eq - i);
      std::string value;
      i = eq + 1;
      if (i < s.size() && s[i] == '"') {
        std::size_t close = s.find('"', i + 1);
        if (close == std::string::npos) refuse(m.where, name + ": an unclosed quote");
        value = s.substr(i + 1, close - i - 1);
        i = close + 1;
      } else {
        std::size_t end = i;
        while (end < s.size() && s[end] != ' ' && s.compare(end, 2, "/>") != 0) ++end;
        value = s.substr(i, end - i);
        i = end;
      }
      if (m.attributes.count(name)) refuse(m.where, name + " given twice");
      m.attributes[name] = value;
      m.order.push_back(name);
    }
    out.push_back(std::move(m));
    at = i;
  }
  if (out.empty()) refuse("the layout", "no messages");
  return out;
}

class MessageReader {
 public:
  MessageReader(const Message& m) : m_(m) {}
  bool has(std::string_view name) const { return m_.attributes.count(std::string(name)) > 0; }
  const std::string& text(std::string_view name) const {
    auto it = m_.attributes.find(std::string(name));
    if (it == m_.attributes.end()) refuse(m_.where, "no " + std::string(name) + " attribute");
    used_.push_back(std::string(name));
    return it->second;
  }
  int32_t number(std::string_view name) const {
    return whole(m_.where, std::string(name), text(name));
  }
  // Every attribute was understood.
  void finish() const {
    for (const auto& n : m_.order)
      if (std::find(used_.begin(), used_.end(), n) == used_.end())
        refuse(m_.where, "unknown attribute " + n);
  }
  int32_t flag_byte() const {
    int32_t b = 0;
    for (const auto& f : a::kFlags) {
      int32_t v = number(f.name);
      if (v != 0 && v != 1) refuse(m_.where, std::string(f.name) + " must be 0 or 1");
      if (v == 0) b |= f.bit;  // 1 means the bit is clear
    }
    return b;
  }

 private:
  const Message& m_;
  mutable std::vector<std::string> used_;
};

// What a kind's table carries plainly (positions, magnifications, texts, flags), read back into
// the properties; the kind's own attributes are its caller's. Properties stay in Id order.
template <std::size_t N>
void read_carried(const fmt::Attribute (&table)[N], const MessageReader& in, Reader& r,
                  ReceivedObject& o, const std::string& where, const char* kind) {
  for (const auto& at : table) {
    switch (at.carry) {
      case fmt::Carry::DotsX:
      case fmt::Carry::DotsY:
        r.set(o, at.property, millimetres(in.number(at.name)));
        break;
      case fmt::Carry::Zoom:
        r.set(o, at.property, std::to_string(r.zoom(where, kind, at.property, in.number(at.name))));
        break;
      case fmt::Carry::Text:
        r.set(o, at.property, in.text(at.name));
        break;
      case fmt::Carry::Flags:
        r.set(o, at.property, hex_byte(in.flag_byte()));
        break;
      case fmt::Carry::Own:
        break;
    }
  }
  std::stable_sort(o.properties.begin(), o.properties.end(),
                   [](const auto& x, const auto& y) { return x.first < y.first; });
}

}  // namespace

ReceivedLayout read_5000(const std::string& messages, int32_t source, Lookups& l) {
  ReceivedLayout out;
  Reader r(l, out);
  int64_t base = static_cast<int64_t>(source) * fmt::kObjectsPerLayout;
  bool ticket = false;
  for (const Message& m : split_messages(messages)) {
    MessageReader in(m);
    const std::string& ope = in.text("OPE");
    if (in.text("TYP") != "LAY") refuse(m.where, "TYP is \"" + in.text("TYP") + "\", not LAY");
    int64_t id = in.number(a::kId);
    if (id / fmt::kObjectsPerLayout != source)
      refuse(m.where, "object " + std::to_string(id) + " belongs to layout " +
                          std::to_string(id / fmt::kObjectsPerLayout) + ", not " +
                          std::to_string(source));
    if (ope == "DEL") {
      in.finish();  // the layout is replaced as a whole anyway
      continue;
    }
    if (ope != "NEW") refuse(m.where, "OPE is \"" + ope + "\", not NEW or DEL");
    std::string field = std::to_string(id - base);
    ReceivedObject o;
    if (in.has(a::kWidth)) {
      if (ticket) refuse(m.where, "a second ticket");
      ticket = true;
      // The 5000 series carries no ticket code: stored as 0.
      o = ticket_object(in.number(a::kWidth), in.number(a::kHeight), "0");
      in.finish();
      out.objects.insert(out.objects.begin(), std::move(o));
      continue;
    }
    if (in.has(a::kImageFile)) {
      namespace p = fmt::logo;
      o.kind = fmt::kLogo;
      std::string name = in.text(a::kImageFile);
      int32_t image = r.lookups().image_of(name);
      if (image == 0) {
        image = in.number(a::kFieldValue);
        r.note(m.where, "no image named \"" + name + "\" in the archive; image number " +
                            std::to_string(image) + " kept");
      } else {
        in.text(a::kFieldValue);
      }
      const std::string& style = in.text(a::kFont);
      if (style != fmt::kLogoPlain && style != fmt::kLogoStyled)
        refuse(m.where, "a logo's TCA must be 99 or 98, not " + style);
      in.text(a::kDataType);
      in.text(a::kCharacters);
      r.set(o, p::kField, field);
      r.set(o, p::kImage, std::to_string(image));
      r.set(o, p::kLastField, "0");
      r.set(o, p::kStyle, style == fmt::kLogoPlain ? "0" : "1");
      read_carried(fmt::kLogo5000, in, r, o, m.where, "LOGO");
    } else if (in.text(a::kDataType) == fmt::kBarcodeDataType) {
      namespace p = fmt::barcode;
      o.kind = fmt::kBarcode;
      r.set(o, p::kField, field);
      r.set(o, p::kType, std::to_string(in.number(a::kFont)));
      r.set(o, p::kLastField, "0");
      read_carried(fmt::kBarcode5000, in, r, o, m.where, "BARCODE");
    } else {
      namespace p = fmt::text;
      o.kind = fmt::kText;
      // The data type back to the 3000 series (36, 37 and 38 as they stand), then snapped.
      std::string tda = in.text(a::kDataType);
      int32_t sent = whole(m.where, "TDA", tda);
      int32_t type = sent;
      if (!fmt::sent_as_stored(sent)) {
        std::string from = "O5", to = "O3", value = tda;
        std::string mapped = r.lookups().mapping.ConvertValue(from, to, value);
        type = whole(m.where, "the data type mapped from TDA " + tda, mapped);
      }
      type = r.data_type(m.where, type, true);
      int32_t nrg = in.number(a::kFieldValue);
      if (type == fmt::kDataTypeWithBase && nrg >= fmt::kDataTypeBase) nrg -= fmt::kDataTypeBase;
      // TCA: fonts below 25 travel as font + 1.
      int32_t tca = in.number(a::kFont);
      int32_t font = tca <= fmt::kFontShiftBelow ? tca - 1 : tca;
      r.set(o, p::kField, field);
      r.set(o, p::kDataType, std::to_string(type));
      r.set(o, p::kFont, std::to_string(r.font(m.where, font)));
      r.set(o, p::kLastField, "0");
      r.set(o, p::kFieldValue, std::to_string(nrg));
      read_carried(fmt::kText5000, in, r, o, m.where, "TEXT");
    }
    in.finish();
    out.objects.push_back(std::move(o));
  }
  if (!ticket) refuse("the layout", "no ticket message (one with DIX and DIY)");
  return out;
}

}  // namespace qk::layout
