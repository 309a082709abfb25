#include "picture_files.h"

#include <cairo.h>
#include <librsvg/rsvg.h>
#include <png.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "qk/host.h"

namespace qkp {

GreyPicture grey_of(const qk::images::Picture& p) {
  GreyPicture g{p.width, p.height, {}};
  g.pixels.reserve(static_cast<std::size_t>(p.width) * p.height);
  for (const auto& row : p.rows)
    for (int x = 0; x < p.width; ++x)
      g.pixels.push_back(x < static_cast<int>(row.size()) && row[x] ? kPrinted : kBlank);
  return g;
}

namespace {

void append_bytes(png_structp png, png_bytep data, png_size_t n) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), n);
}

cairo_status_t append_cairo(void* closure, const unsigned char* data, unsigned int n) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), n);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

// Both writers build the file in memory and save it like every other file: written beside the
// target, flushed, renamed over it.
void write_png(const std::string& path, const GreyPicture& p) {
  if (p.width <= 0 || p.height <= 0) throw std::runtime_error(path + ": the picture is empty");
  std::string bytes;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error(path + ": the PNG could not be made");
  }
  png_set_write_fn(png, &bytes, append_bytes, nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(p.width), static_cast<png_uint_32>(p.height), 8,
               PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < p.height; ++y)
    png_write_row(png, const_cast<png_bytep>(&p.pixels[static_cast<std::size_t>(y) * p.width]));
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  qk::save_file_atomically(path, bytes);
}

void write_svg_as_png(const std::string& path, const std::string& svg) {
  GError* error = nullptr;
  RsvgHandle* h =
      rsvg_handle_new_from_data(reinterpret_cast<const guint8*>(svg.data()), svg.size(), &error);
  if (!h) {
    std::string why = error ? error->message : "?";
    if (error) g_error_free(error);
    throw std::runtime_error(path + ": the drawing could not be rendered (" + why + ")");
  }
  gdouble w = 0, hgt = 0;
  if (!rsvg_handle_get_intrinsic_size_in_pixels(h, &w, &hgt)) w = hgt = 400;
  cairo_surface_t* surface =
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(w), static_cast<int>(hgt));
  cairo_t* cr = cairo_create(surface);
  RsvgRectangle viewport{0, 0, w, hgt};
  bool drawn = rsvg_handle_render_document(h, cr, &viewport, &error);
  cairo_destroy(cr);
  std::string bytes;
  bool made = drawn && cairo_surface_write_to_png_stream(surface, append_cairo, &bytes) ==
                           CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  g_object_unref(h);
  if (error) g_error_free(error);
  if (!made) throw std::runtime_error(path + ": the drawing could not be rendered");
  qk::save_file_atomically(path, bytes);
}

void write_drawing(const std::string& path, const std::string& svg) {
  std::string ext = std::filesystem::path(path).extension().string();
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (ext == ".png")
    write_svg_as_png(path, svg);
  else if (ext == ".svg")
    qk::save_file_atomically(path, svg);
  else
    throw std::runtime_error(path + ": a drawing is written as FILE.svg or FILE.png");
}

TemporaryFolder::TemporaryFolder() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "qkp-pictures-XXXXXX").string();
  if (!::mkdtemp(tmpl.data()))
    throw std::runtime_error("cannot make a temporary folder for the pictures");
  path_ = tmpl;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

}  // namespace qkp
