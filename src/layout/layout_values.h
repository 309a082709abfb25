// Conversions between the scales' font, magnification and field numbers and the identifiers the
// archive keeps, through the PROPERTIES tables of "Configurazione.xml". Each runs under the
// clsLayout trap and gives its default (0 or "") after a reported error.
#pragma once

#include <pugixml.hpp>
#include <string>

namespace qk::layout {

// The first VALUE of PROPERTIES/<kind>/PROPERTY[<key>='<number>']/POSSIBLE_VALUES (or none).
pugi::xml_node m_varFindValue(const pugi::xml_document& doc, const std::string& kind,
                              const std::string& key, const std::string& number);

// Sending: the scale's font number of a stored identifier (mod 1000000, then mod 1000), and the
// scale's magnification of a stored identifier ((identifier mod 1000) + 1), as decimal text.
std::string m_RetrieveFontId(const std::string& identifier);
std::string m_RetrieveZoomId(const std::string& identifier);

// Receiving, walking the VALUE siblings from `node` (which they overwrite, as the caller's
// reference): the first identifier whose last three digits are the font; the first whose last
// three digits are magnification - 1; the value itself when listed, else the largest listed
// value below it, else 0.
int32_t m_lngConvertFontId(pugi::xml_node& node, int32_t font);
int32_t m_lngConvertZoomId(pugi::xml_node& node, int32_t zoom);
int32_t m_lngRetrieveNearestFieldValue(pugi::xml_node& node, int32_t& value);

// The file name of a department's image number in the archive, or the number itself.
std::string image_file_name(int32_t dept, int32_t image);

// The 3000 series leaves out objects whose field number is over 50: the encoder, the checker
// and the preview all ask this.
bool left_out_of_3000(const std::string& field);

}  // namespace qk::layout
