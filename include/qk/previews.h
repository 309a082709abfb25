// Pictures for people: a ticket layout drawn as the scale receives it (SVG, millimetres), and a
// 1-bit bitmap read as the image encoders read it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qk/export.h"
#include "qk/pictures.h"

namespace qk {

struct QK_API LayoutPreview {
  bool exists = false;
  std::string svg;                    // UTF-8; one <g class="object …"> per object
  std::vector<std::string> problems;  // objects outside the ticket, missing images, …
};

// Draws layout `layout` of department `dept` from the messages the encoders build (so what moves
// in the records moves in the picture): the ticket to scale with a millimetre grid, each object at
// its position with its field number and data type, sized by its font and magnifications,
// rotated by its direction; logos with their bitmap from `images_folder` when it is there. With
// family "3000", the objects that series does not receive (field over 50) are drawn dashed.
QK_API LayoutPreview preview_layout(int32_t dept, int32_t layout, const std::string& family,
                                    const std::string& images_folder);

}  // namespace qk

namespace qk::images {

// A 1-bit BMP file as the image encoders read it: rows top first, repacked, inverted when its
// palette says so, pad bits as the encoders set them (width rounded up to whole bytes). Raises
// automation::Error when the file is not a 1-bit BMP the encoders accept.
QK_API Picture read_bitmap(const std::string& bytes);

}  // namespace qk::images
