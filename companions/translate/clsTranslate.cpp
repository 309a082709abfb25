#include "translate/clsTranslate.h"

#include <fstream>

#include "qk/host.h"
#include "qk/translations.h"

namespace qk::companions {

std::string clsTranslate::languages_folder() {
  std::string install = installation_folder();
  return path_in(install, host::setting("Appl", "PathLanguages", path_in(install, "Languages")));
}

std::map<std::string, std::string> clsTranslate::StringValues() {
  std::map<std::string, std::string> result;
  // A language code that could name another folder is not a language.
  if (lang_.empty() || lang_.find('/') != std::string::npos ||
      lang_.find("..") != std::string::npos)
    return result;
  std::ifstream in(path_in(languages_folder(), lang_ + ".lng"), std::ios::binary);
  std::string wanted = app_ + "/" + module_, section, line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.size() >= 3 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
    if (line.empty() || line[0] == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = line.substr(1, line.size() - 2);
      continue;
    }
    auto eq = line.find('=');
    if (eq == std::string::npos || section != wanted) continue;
    // A line that is not valid text in 8 bits is skipped rather than shown as garbage.
    auto text = utf8_to_cp1252(line.substr(eq + 1));
    if (text) result[line.substr(0, eq)] = *text;
  }
  return result;
}

void register_translate() {
  automation::register_component(kTranslateId, [] { return std::make_shared<clsTranslate>(); });
}

}  // namespace qk::companions

namespace qk {
void register_translations() {
  companions::register_translate();
}
}  // namespace qk
