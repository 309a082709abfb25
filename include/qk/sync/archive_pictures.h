// Pictures held in the archive: the bitmap file's bytes in the IM_PICTURE column of its IMMAGINI
// row (base64), so that every folder of a chain sends the same picture. The component reads a
// picture from a file: it is handed one written from the archive, named by its content.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qk/archive_tools.h"
#include "qk/export.h"

namespace qk {
namespace QK_API sync {

// The column's text for a file's bytes, and the bytes back (nullopt: not base64).
std::string picture_text(const std::string& bytes);
std::optional<std::string> picture_bytes(const std::string& text);

// A file holding exactly `bytes`, in `folder`/.archive/ and named by their SHA-256: written
// (atomically) when it is missing or holds anything else, so a stale or damaged file is never read.
std::string materialised_picture(const std::string& folder, const std::string& bytes);

// The whole content of a file, or nullopt when it cannot be read.
std::optional<std::string> read_whole_file(const std::string& path);

// The department's pictures as the archive holds them, written by file name into `folder` for
// what reads pictures by name (the layout preview). An image without a picture has no file there.
void write_department_pictures(ArchiveTools& a, const std::string& folder, int32_t dept);

// Where a row's picture file is looked for in a folder: images/<department>/<name> (as the CSV
// export writes them), images/<name> (as an installation keeps them), then <name>.
std::vector<std::string> picture_file_candidates(const std::string& folder, int32_t dept,
                                                 const std::string& name);

struct PictureLoad {
  long loaded = 0;
  std::vector<std::string> missing;  // "image 4 of department 1 (LOGO.BMP)"
};
// Gives every IMMAGINI row without a picture the file found for it in `folder`, inside the
// caller's write transaction.
PictureLoad load_missing_pictures(ArchiveTools& a, const std::string& folder);

}  // namespace sync
}  // namespace qk
