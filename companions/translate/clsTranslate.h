// "QK_Translate.clsTranslate": translated texts from UTF-8 files in the "PathLanguages" folder.
//
// File format: <PathLanguages>/<LangCode>.lng, sections "[APPLICATION/MODULE]" and lines
// "KEY=text" (blank lines and lines starting with "#" are ignored). StringValues returns the keys
// of the section named by ApplicationName and ModuleName; a missing file, language or section
// gives an empty collection.
#pragma once

#include <string>

#include "qk/companions.h"

namespace qk::companions {

class clsTranslate : public Translate {
 public:
  void LangCode(const std::string& v) override { lang_ = v; }
  void ApplicationName(const std::string& v) override { app_ = v; }
  void ModuleName(const std::string& v) override { module_ = v; }
  std::map<std::string, std::string> StringValues() override;

  // The folder holding the language files: setting "PathLanguages" of "Appl", by default the
  // "Languages" folder of the installation.
  static std::string languages_folder();

 private:
  std::string lang_, app_, module_;
};

// Registers the component under "QK_Translate.clsTranslate".
void register_translate();

}  // namespace qk::companions
