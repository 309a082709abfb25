#include "config/xml_file.h"

#include <sstream>

#include "qk/error.h"
#include "qk/host.h"

namespace qk::config {

bool load_document(pugi::xml_document& doc, const std::string& path) {
  pugi::xml_parse_result r = doc.load_file(path.c_str(), pugi::parse_default, pugi::encoding_auto);
  if (!r) doc.reset();
  return static_cast<bool>(r);
}

}  // namespace qk::config

namespace qk::config {

void save_document_atomically(const pugi::xml_document& doc, const std::string& path) {
  std::ostringstream out;
  doc.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
  save_file_atomically(path, out.str());
}

std::string from_xml(const char* utf8) {
  auto r = utf8_to_cp1252(utf8 ? utf8 : "");
  if (!r)
    automation::raise(automation::kTypeMismatch,
                      "an XML text holds a character with no 8-bit form: " + std::string(utf8));
  return *r;
}

std::string to_xml(const std::string& text) {
  return cp1252_to_utf8(text);
}

pugi::xpath_node select_single(const pugi::xml_node& context, const std::string& query) {
  if (!context) return {};
  return context.select_node(to_xml(query).c_str());
}

}  // namespace qk::config
