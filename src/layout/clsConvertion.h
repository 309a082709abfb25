// Value mapping between the 3000 and 5000 series: the MAP elements of the MAPPING section of
// "Configurazione.xml" (component folder), each with one attribute per series ("O3", "O5").
// No trap: errors reach the caller's.
#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>

namespace qk {

class clsConvertion {
 public:
  clsConvertion();  // loads the file once; a missing or malformed file leaves no mapping

  // The strToTag value of the first MAP whose strFromTag attribute is strValue; strValue itself
  // when no MAP matches; "" when the matching MAP lacks strToTag.
  std::string ConvertValue(std::string& strFromTag, std::string& strToTag, std::string& strValue);

  // The tool's own lookup, comparing the value literally (never pasted into a query): the
  // to_tag value of the first MAP whose from_tag value is `value`, or nullopt when none is.
  std::optional<std::string> lookup(const std::string& from_tag, const std::string& to_tag,
                                    const std::string& value) const;
  bool is_mapped(const std::string& from_tag, const std::string& value) const {
    return lookup(from_tag, from_tag, value).has_value();
  }

 private:
  pugi::xml_document doc_;
};

}  // namespace qk
