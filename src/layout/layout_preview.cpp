// Layout previews: the 5000 messages the encoders build, read back into objects (millimetres from
// the scale's edge), drawn as SVG. Sizes are indicative: a character is drawn 1.5 mm wide and
// 3 mm high at magnification 1, growing with the font number's tens and each magnification.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

#include "automation/conversions.h"
#include "config/xml_file.h"
#include "frame/globals.h"
#include "layout/clsConvertion.h"
#include "layout/layout_format.h"
#include "layout/layout_receive.h"
#include "layout/layout_values.h"
#include "qk/clsLayout.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/previews.h"

namespace qk {

namespace {

namespace fmt = layout_format;
using Props = std::map<int, std::string>;

constexpr double kMargin = 8;          // mm around the ticket, for the ruler
constexpr double kCharWidth = 1.5;     // mm per character at magnification 1
constexpr double kCharHeight = 3.0;    // mm
constexpr double kBarcodeHeight = 12;  // mm at magnification 1
constexpr double kPixelsPerMm = 10;    // a PNG a person can read: labels of 2 mm are 20 px
constexpr double kLabelHeight = 2.2;   // mm between the labels of objects at one place
constexpr double kLegendHeight = 16;   // mm below the ticket: four lines

double num(const Props& p, int id) {
  auto it = p.find(id);
  if (it == p.end() || it->second.empty()) return 0;
  try {
    return automation::parse_number(it->second);
  } catch (const automation::Error&) {
    return 0;
  }
}
std::string text(const Props& p, int id) {
  auto it = p.find(id);
  return it == p.end() ? "" : it->second;
}
std::string mm(double v) {
  char b[32];
  std::snprintf(b, sizeof b, "%.3f", v);
  std::string s = b;
  while (s.back() == '0') s.pop_back();
  if (s.back() == '.') s.pop_back();
  return s;
}
std::string escaped(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else if (c == '&')
      out += "&amp;";
    else if (c == '"')
      out += "&quot;";
    else
      out += c;
  }
  return out;
}
// The scale's magnification of a stored identifier (1 when unknown).
int zoom(const std::string& identifier) {
  std::string z = layout::m_RetrieveZoomId(identifier.empty() ? "0" : identifier);
  int v = z.empty() ? 1 : std::atoi(z.c_str());
  return v > 0 ? v : 1;
}
int font(const std::string& identifier) {
  std::string f = layout::m_RetrieveFontId(identifier.empty() ? "0" : identifier);
  return f.empty() ? 0 : std::atoi(f.c_str());
}
std::string base64(const std::string& bytes) {
  static const char* t = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 2]);
    out += t[(v >> 18) & 63];
    out += t[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? t[(v >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? t[v & 63] : '=';
  }
  return out;
}

struct Box {
  double x, y, w, h;
  int direction;  // quarter turns
};

}  // namespace

LayoutPreview preview_layout(int32_t dept, int32_t layout_id, const std::string& family,
                             const std::string& images_folder) {
  LayoutPreview out;
  clsLayout l;
  l.p_lngBnc(dept);
  l.p_lngTicketId(layout_id);
  if (!l.p_booRetrieveData()) return out;
  out.exists = true;
  std::string messages;
  automation::StringArray sent = l.p_strProtocol(1);
  for (const auto& m : sent.items()) messages += m + "\n";
  clsConvertion mapping;
  // The layout object has created this thread's database object: the lookups use it too.
  auto configuration = config::shared_document(component_folder() + "/Configurazione.xml");
  layout::Lookups lookups{*configuration, mapping, [&](const std::string& name) {
                            return int32_t{db().p_IMMAGINI_intRetrieveIdFromFileName(dept, name)};
                          }};
  layout::ReceivedLayout got = layout::read_5000(messages, layout_id, lookups);

  const Props ticket(got.objects[0].properties.begin(), got.objects[0].properties.end());
  double tw = num(ticket, fmt::ticket::kWidth), th = num(ticket, fmt::ticket::kHeight);
  if (tw <= 0 || th <= 0) out.problems.push_back("the ticket has no width or height");
  std::string s;
  double vw = std::max(tw, 60.0) + 2 * kMargin,
         vh = std::max(th, 10.0) + 2 * kMargin + kLegendHeight;
  s += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + mm(vw * kPixelsPerMm) +
       "\" height=\"" + mm(vh * kPixelsPerMm) + "\" viewBox=\"" + mm(-kMargin) + " " +
       mm(-kMargin) + " " + mm(vw) + " " + mm(vh) + "\" font-family=\"sans-serif\">\n";
  s += "<title>layout " + std::to_string(layout_id) + " of department " + std::to_string(dept) +
       " (" + escaped(family) + " series), millimetres</title>\n";
  s += "<rect x=\"" + mm(-kMargin) + "\" y=\"" + mm(-kMargin) + "\" width=\"" + mm(vw) +
       "\" height=\"" + mm(vh) + "\" fill=\"white\"/>\n";
  // The ruler: a line every millimetre along the edges, every 10 mm numbered, a light grid.
  s += "<g class=\"grid\" stroke=\"#dde\" stroke-width=\"0.1\">\n";
  for (int x = 0; x <= tw; x += 5)
    s += "<line x1=\"" + mm(x) + "\" y1=\"0\" x2=\"" + mm(x) + "\" y2=\"" + mm(th) + "\"/>\n";
  for (int y = 0; y <= th; y += 5)
    s += "<line x1=\"0\" y1=\"" + mm(y) + "\" x2=\"" + mm(tw) + "\" y2=\"" + mm(y) + "\"/>\n";
  s += "</g>\n<g class=\"ruler\" font-size=\"2\" fill=\"#667\">\n";
  for (int x = 0; x <= tw; x += 10)
    s += "<text x=\"" + mm(x) + "\" y=\"-2\" text-anchor=\"middle\">" + std::to_string(x) +
         "</text>\n";
  for (int y = 0; y <= th; y += 10)
    s += "<text x=\"-2\" y=\"" + mm(y + 0.7) + "\" text-anchor=\"end\">" + std::to_string(y) +
         "</text>\n";
  s += "</g>\n";
  s += "<rect class=\"ticket\" x=\"0\" y=\"0\" width=\"" + mm(tw) + "\" height=\"" + mm(th) +
       "\" fill=\"none\" stroke=\"black\" stroke-width=\"0.3\" data-width-mm=\"" + mm(tw) +
       "\" data-height-mm=\"" + mm(th) + "\"/>\n";

  // Objects at one place: their labels are stacked and the picture says so.
  std::map<std::pair<std::string, std::string>, std::string> placed;  // (x, y) -> first label
  std::map<std::pair<std::string, std::string>, int> stacked;
  for (std::size_t i = 1; i < got.objects.size(); ++i) {
    const auto& o = got.objects[i];
    Props p(o.properties.begin(), o.properties.end());
    std::string kind = o.kind == fmt::kText ? "text" : o.kind == fmt::kBarcode ? "barcode" : "logo";
    std::string field = text(p, 0);
    Box b{};
    std::string label = "F" + field, inner;
    if (o.kind == fmt::kText) {
      namespace t = fmt::text;
      int zw = zoom(text(p, t::kZoomWidth)), zh = zoom(text(p, t::kZoomHeight));
      double scale = 1 + font(text(p, t::kFont)) / 10 * 0.5;
      double chars = std::max(1.0, num(p, t::kCharacters));
      b = {num(p, t::kX), num(p, t::kY), chars * kCharWidth * zw * scale, kCharHeight * zh * scale,
           static_cast<int>(num(p, t::kDirection))};
      label += " T" + text(p, t::kDataType);
      inner = "<rect width=\"" + mm(b.w) + "\" height=\"" + mm(b.h) +
              "\" fill=\"#e8f0ff\" stroke=\"#36c\" stroke-width=\"0.2\"/>";
    } else if (o.kind == fmt::kBarcode) {
      namespace c = fmt::barcode;
      int zw = zoom(text(p, c::kZoomWidth)), zh = zoom(text(p, c::kZoomHeight));
      double chars = std::max(1.0, num(p, c::kCharacters));
      b = {num(p, c::kX), num(p, c::kY), (chars * 1.2 + 4) * zw, kBarcodeHeight * zh,
           static_cast<int>(num(p, c::kDirection))};
      label += " B" + text(p, c::kType);
      inner = "<rect width=\"" + mm(b.w) + "\" height=\"" + mm(b.h) +
              "\" fill=\"white\" stroke=\"#333\" stroke-width=\"0.2\"/>";
      for (double x = 1; x < b.w - 1; x += 0.8 + std::fmod(x * 7, 3) * 0.3)
        inner += "<rect x=\"" + mm(x) + "\" y=\"1\" width=\"" +
                 mm(0.3 + std::fmod(x * 3, 2) * 0.2) + "\" height=\"" + mm(b.h - 4) +
                 "\" fill=\"#333\"/>";
    } else {
      namespace g = fmt::logo;
      int zw = zoom(text(p, g::kZoomWidth)), zh = zoom(text(p, g::kZoomHeight));
      b = {num(p, g::kX), num(p, g::kY), 20.0 * zw, 20.0 * zh,
           static_cast<int>(num(p, g::kDirection))};
      int32_t image = static_cast<int32_t>(num(p, g::kImage));
      std::string name = layout::image_file_name(dept, image);
      label += " image " + name;
      std::string path = images_folder + "/" + name;
      std::ifstream in(path, std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      images::Picture pic;
      bool drawn = false;
      if (in && !bytes.empty()) {
        try {
          pic = images::read_bitmap(bytes);
          drawn = true;
        } catch (const automation::Error& e) {
          out.problems.push_back("logo " + field + ": " + path + ": " + e.description());
        }
      } else {
        out.problems.push_back("logo " + field + ": no picture file " + path +
                               " (a placeholder is drawn)");
      }
      if (drawn) {
        b.w = pic.width / 8.0 * zw;
        b.h = pic.height / 8.0 * zh;
        inner = "<image width=\"" + mm(b.w) + "\" height=\"" + mm(b.h) +
                "\" preserveAspectRatio=\"none\" href=\"data:image/bmp;base64," +
                base64(images::encode_bmp1(pic)) + "\"/>";
      } else {
        inner = "<rect width=\"" + mm(b.w) + "\" height=\"" + mm(b.h) +
                "\" fill=\"#eee\" stroke=\"#999\" stroke-width=\"0.2\"/><line x2=\"" + mm(b.w) +
                "\" y2=\"" + mm(b.h) + "\" stroke=\"#999\" stroke-width=\"0.2\"/>";
      }
    }
    bool not_sent = family == "3000" && layout::left_out_of_3000(field);
    auto at = std::make_pair(mm(b.x), mm(b.y));
    int above = stacked[at]++;
    if (above == 0)
      placed[at] = kind + " " + field;
    else
      out.problems.push_back(kind + " " + field + " stands at the same place as " + placed[at] +
                             " (" + at.first + ", " + at.second +
                             " mm): one prints over the other");
    bool outside = b.x < 0 || b.y < 0 || b.x + (b.direction % 2 ? b.h : b.w) > tw + 1e-9 ||
                   b.y + (b.direction % 2 ? b.w : b.h) > th + 1e-9;
    if (outside)
      out.problems.push_back(kind + " " + field + " reaches outside the ticket (at " + mm(b.x) +
                             ", " + mm(b.y) + " mm)");
    std::string cls =
        "object " + kind + (not_sent ? " not-sent" : "") + (outside ? " outside" : "");
    s += "<g class=\"" + cls + "\" data-field=\"" + escaped(field) + "\" data-x-mm=\"" + mm(b.x) +
         "\" data-y-mm=\"" + mm(b.y) + "\" data-width-mm=\"" + mm(b.w) + "\" data-height-mm=\"" +
         mm(b.h) + "\" transform=\"translate(" + mm(b.x) + " " + mm(b.y) + ") rotate(" +
         std::to_string((b.direction % 4) * 90) + ")\"" + (not_sent ? " opacity=\"0.4\"" : "") +
         ">" + inner;
    if (not_sent || outside)
      s += "<rect width=\"" + mm(b.w) + "\" height=\"" + mm(b.h) + "\" fill=\"none\" stroke=\"" +
           std::string(outside ? "red" : "#999") +
           "\" stroke-width=\"0.4\" stroke-dasharray=\"1 1\"/>";
    // The first label stands above its box, the labels of the objects under it below.
    double label_y = above == 0 ? -0.5 : b.h + 2 + (above - 1) * kLabelHeight;
    s += "<text x=\"0.5\" y=\"" + mm(label_y) + "\" font-size=\"2\" fill=\"#036\">" +
         escaped(cp1252_to_utf8(label)) + (not_sent ? " (not sent to the 3000 series)" : "") +
         "</text></g>\n";
  }
  // What the labels mean.
  double ly = std::max(th, 10.0) + 5;
  std::vector<std::string> legend = {"F7: field 7, T1: data type 1, B5: barcode type 5",
                                     "image X.BMP: the logo's picture file",
                                     "dashed red: reaches outside the ticket"};
  if (family == "3000") legend.push_back("faded, dashed grey: not sent to the 3000 series");
  s += "<g class=\"legend\" font-size=\"2\" fill=\"#333\">\n";
  for (const auto& line : legend) {
    s += "<text x=\"0\" y=\"" + mm(ly) + "\">" + escaped(line) + "</text>\n";
    ly += 3;
  }
  s += "</g>\n</svg>\n";
  out.svg = std::move(s);
  return out;
}

}  // namespace qk
