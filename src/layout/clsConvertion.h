// Value mapping between the 3000 and 5000 series: the MAP elements of the MAPPING section of
// "Configurazione.xml" (component folder), each with one attribute per series ("O3", "O5").
// No trap: errors reach the caller's.
#pragma once

#include <pugixml.hpp>
#include <string>

namespace qk {

class clsConvertion {
 public:
  clsConvertion();  // loads the file once; a missing or malformed file leaves no mapping

  // The strToTag value of the first MAP whose strFromTag attribute is strValue; strValue itself
  // when no MAP matches; "" when the matching MAP lacks strToTag.
  std::string ConvertValue(std::string& strFromTag, std::string& strToTag, std::string& strValue);

  // Whether some MAP has that strFromTag value.
  bool is_mapped(const std::string& from_tag, const std::string& value) const;

 private:
  pugi::xml_document doc_;
};

}  // namespace qk
