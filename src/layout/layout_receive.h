// Layouts sent back by a scale, read into objects and properties as the archive keeps them: the
// inverse of the 3000 and 5000 senders (docs/layouts.md, "Receiving"). Reading never touches the
// archive; a record or message that cannot be read raises error 5 naming its position and why.
#pragma once

#include <cstdint>
#include <functional>
#include <pugixml.hpp>
#include <string>
#include <utility>
#include <vector>

namespace qk {
class clsConvertion;
}

namespace qk::layout {

struct ReceivedObject {
  int kind = 0;                                         // OBJ_TYPE (layout_format.h)
  std::vector<std::pair<int, std::string>> properties;  // Id, value as the archive stores it
};

struct ReceivedLayout {
  std::vector<ReceivedObject> objects;  // the ticket first, then as received
  std::vector<std::string> notes;       // values snapped to a listed one, or not listed at all
};

// What reading needs besides the bytes: the configuration document (looked up afresh for every
// conversion), the value mapping, and the image number of a logo's file name (0: none).
struct Lookups {
  const pugi::xml_document& configuration;
  clsConvertion& mapping;
  std::function<int32_t(const std::string&)> image_of;
};

// Records of a 3000-series scale for its layout `source`, separated by line breaks or "@#@".
ReceivedLayout read_3000(const std::string& records, int32_t source, Lookups& l);
// Messages of a 5000-series scale for its layout `source` ("<MSG … />", in any layout of lines).
ReceivedLayout read_5000(const std::string& messages, int32_t source, Lookups& l);

}  // namespace qk::layout
