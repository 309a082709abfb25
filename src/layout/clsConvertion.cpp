#include "layout/clsConvertion.h"

#include "config/xml_file.h"
#include "frame/paths.h"

namespace qk {

clsConvertion::clsConvertion() {
  config::load_document(doc_, component_folder() + kPathSeparator + "Configurazione.xml");
}

bool clsConvertion::is_mapped(const std::string& from_tag, const std::string& value) const {
  auto nodes = doc_.select_nodes(
      config::to_xml("//PROPERTIES/MAPPING/MAP[@" + from_tag + "='" + value + "']").c_str());
  return !nodes.empty() && nodes.first().node().type() == pugi::node_element;
}

std::string clsConvertion::ConvertValue(std::string& strFromTag, std::string& strToTag,
                                        std::string& strValue) {
  auto nodes = doc_.select_nodes(
      config::to_xml("//PROPERTIES/MAPPING/MAP[@" + strFromTag + "='" + strValue + "']").c_str());
  if (nodes.empty() || nodes.first().node().type() != pugi::node_element) return strValue;
  return config::from_xml(nodes.first().node().attribute(config::to_xml(strToTag).c_str()).value());
}

}  // namespace qk
