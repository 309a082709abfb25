#include "layout/layout_walk.h"

#include "automation/conversions.h"
#include "frame/modUtility.h"
#include "layout/layout_values.h"

namespace qk::layout {

namespace fmt = layout_format;
using automation::Variant;

double number(const std::string& s) {
  return Variant(modUtility::p_strCommaToPeriod(s)).to_double();
}
int32_t dots(const std::string& s) {
  return automation::double_to_int32(number(s) * fmt::kDotsPerMillimetre);
}

namespace {
int32_t rounded(const std::string& s) {
  return automation::double_to_int32(number(s));
}
int32_t hex(const std::string& s) {
  return Variant("&H" + s).to_int32();
}
}  // namespace
void ObjectValues::read(int id, const std::string& v, fmt::Read how) {
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

}  // namespace qk::layout
