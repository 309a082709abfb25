#include "layout/clsConvertion.h"

#include "config/xml_file.h"
#include "frame/paths.h"

namespace qk {

clsConvertion::clsConvertion() {
  config::load_document(doc_, component_folder() + kPathSeparator + "Configurazione.xml");
}

std::optional<std::string> clsConvertion::lookup(const std::string& from_tag,
                                                 const std::string& to_tag,
                                                 const std::string& value) const {
  std::string from = config::to_xml(from_tag), wanted = config::to_xml(value);
  for (pugi::xml_node map : doc_.child("PROPERTIES").child("MAPPING").children("MAP"))
    if (pugi::xml_attribute a = map.attribute(from.c_str()); a && wanted == a.value())
      return config::from_xml(map.attribute(config::to_xml(to_tag).c_str()).value());
  return std::nullopt;
}

std::string clsConvertion::ConvertValue(std::string& strFromTag, std::string& strToTag,
                                        std::string& strValue) {
  auto nodes = doc_.select_nodes(
      config::to_xml("//PROPERTIES/MAPPING/MAP[@" + strFromTag + "='" + strValue + "']").c_str());
  if (nodes.empty() || nodes.first().node().type() != pugi::node_element) return strValue;
  return config::from_xml(nodes.first().node().attribute(config::to_xml(strToTag).c_str()).value());
}

}  // namespace qk
