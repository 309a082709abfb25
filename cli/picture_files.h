// Pictures written for people: PNG files of pixel pictures (libpng) and of SVG drawings
// (rendered by librsvg and cairo). Errors raise std::runtime_error naming the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qk/pictures.h"

namespace qkp {

// Grey levels of a preview: a printed dot, a blank one, and the same for what the scale loses.
inline constexpr uint8_t kPrinted = 0, kBlank = 255, kLostPrinted = 150, kLostBlank = 225;

struct GreyPicture {
  int width = 0, height = 0;
  std::vector<uint8_t> pixels;  // row by row, top first
};

// What the scale shows: printed dots black, the others white.
GreyPicture grey_of(const qk::images::Picture& p);

void write_png(const std::string& path, const GreyPicture& p);
// Renders an SVG document (its size in its width and height attributes) to a PNG file.
void write_svg_as_png(const std::string& path, const std::string& svg);
// Writes `text` to `path`, or to `path` as PNG when it ends in ".png" and `text` is SVG.
void write_drawing(const std::string& path, const std::string& svg);

// A folder of this run's own for pictures read from the archive (the installation folder stays as
// it is: a preview only looks); removed with what is in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace qkp
