// The demo installation: a small but realistic network of scales in one folder.
#pragma once

#include <string>

namespace qk::companions {
class Archive;
}

namespace qkp {

// Default files of an installation (translations, Parameters.xml, Configurazione.xml).
void write_default_files(const std::string& folder, bool overwrite);
// Demo settings store, logos and the demo rows in the (empty) archive.
void write_demo_files(const std::string& folder);
void fill_demo_archive(qk::companions::Archive& archive);

}  // namespace qkp
