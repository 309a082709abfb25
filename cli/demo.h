// The demo installation: a small but realistic network of scales in one folder.
#pragma once

#include <map>
#include <string>

namespace qk {
class ArchiveTools;
}

namespace qkp {

// Default files of an installation (translations, Parameters.xml, Configurazione.xml).
void write_default_files(const std::string& folder, bool overwrite);
// Demo settings store, logos and the demo rows in the (empty) archive.
void write_demo_files(const std::string& folder);
// The demo's bitmaps by file name (in the archive's IMMAGINI rows, and in the folder's images/).
const std::map<std::string, std::string>& demo_pictures();
void fill_demo_archive(qk::ArchiveTools& archive);
// A large network for measurements: 50 departments of 8 lines, 100,000 key rows, 5,000 lots,
// 500 advertising messages, 200 layouts, everything pending.
void fill_large_archive(qk::ArchiveTools& archive);

}  // namespace qkp
