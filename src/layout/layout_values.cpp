#include "layout/layout_values.h"

#include "automation/conversions.h"
#include "config/xml_file.h"
#include "frame/globals.h"
#include "frame/modUtility.h"
#include "frame/report_error.h"
#include "layout/layout_format.h"

namespace qk::layout {

using automation::Variant;

namespace {
TrapLabel label(const char* procedure) {
  return {procedure, "clsLayout"};
}

// The host's Mod: both operands as 32-bit integers, the sign of the dividend.
int32_t mod(int32_t a, int32_t b) {
  return a % b;
}

double id_number(const pugi::xml_node& value) {
  return Variant(config::from_xml(value.child("ID").text().get())).to_double();
}
}  // namespace

pugi::xml_node m_varFindValue(const pugi::xml_document& doc, const std::string& kind,
                              const std::string& key, const std::string& number) {
  pugi::xml_node result;
  trap(label("m_varFindValue"), [&] {
    result = config::select_single(doc, "PROPERTIES/" + kind + "/PROPERTY[" + key + "='" + number +
                                            "']/POSSIBLE_VALUES/VALUE")
                 .node();
  });
  return result;
}

std::string m_RetrieveFontId(const std::string& identifier) {
  std::string result;
  trap(label("m_RetrieveFontId"),
       [&] { result = std::to_string(mod(mod(Variant(identifier).to_int32(), 1000000), 1000)); });
  return result;
}

std::string m_RetrieveZoomId(const std::string& identifier) {
  std::string result;
  trap(label("m_RetrieveZoomId"),
       [&] { result = std::to_string(mod(Variant(identifier).to_int32(), 1000) + 1); });
  return result;
}

int32_t m_lngConvertFontId(pugi::xml_node& node, int32_t font) {
  int32_t result = 0;
  trap(label("m_lngConvertFontId"), [&] {
    for (; node; node = node.next_sibling())
      if (mod(automation::double_to_int32(id_number(node)), 1000) == font) {
        result = Variant(config::from_xml(node.child("ID").text().get())).to_int32();
        return;
      }
  });
  return result;
}

int32_t m_lngConvertZoomId(pugi::xml_node& node, int32_t zoom) {
  int32_t result = 0;
  trap(label("m_lngConvertZoomId"), [&] {
    for (; node; node = node.next_sibling())
      if (mod(automation::double_to_int32(id_number(node)), 1000) == zoom - 1) {
        result = Variant(config::from_xml(node.child("ID").text().get())).to_int32();
        return;
      }
  });
  return result;
}

int32_t m_lngRetrieveNearestFieldValue(pugi::xml_node& node, int32_t& value) {
  int32_t result = 0;
  trap(label("m_lngRetrieveNearestFieldValue"), [&] {
    double best = 10000000000.0, found = 0;
    for (; node; node = node.next_sibling()) {
      double listed = id_number(node);
      int32_t difference = automation::double_to_int32(value - listed);
      if (difference == 0) {
        result = value;
        return;
      }
      if (difference > 0 && difference <= best) {
        best = difference;
        found = listed;
      }
    }
    result = automation::double_to_int32(found);
  });
  return result;
}

std::string image_file_name(int32_t dept, int32_t image) {
  auto rs = db().p_IMMAGINI_objLoadValues(dept, image);
  return rs->Eof() ? std::to_string(image) : rs->Fields("IM_FILE_NAME").to_text();
}

bool left_out_of_3000(const std::string& field) {
  return modUtility::p_lngNumericValue(field) > layout_format::kMaxFieldNumber3000;
}

}  // namespace qk::layout
