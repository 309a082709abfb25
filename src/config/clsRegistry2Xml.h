// The settings store: GetSetting/SaveSetting over "registry.xml" instead of the system registry.
// The file lives in the folder named by the per-user setting "UseThisPath" (section "Debug"), or
// else in the component's folder (cut before a "DEP" folder). Reports use the project "QK".
#pragma once

#include <pugixml.hpp>
#include <string>
#include <vector>

namespace qk {

class RegistryHelper;

class clsRegistry2Xml {
 public:
  clsRegistry2Xml();

  // The first key of that name anywhere in the file, whatever its application and section (the
  // lookup uses the name only, on purpose). Its value, or strDefault when it is empty or absent.
  std::string GetSetting(const std::string& strAppName, const std::string& strSection,
                         const std::string& strKeyName, const std::string& strDefault);
  // Sets or creates the key of that name and path; saves the whole file atomically. Errors are
  // written to the event log, and reported when booShowError is true.
  void SaveSetting(const std::string& strAppName, const std::string& strSection,
                   const std::string& strKeyName, const std::string& strValue,
                   bool booShowError = true);
  // Writes an empty store (root/keys).
  void CreateDoc();
  // Imports the per-user registry branch when the component's version number is below 21227,
  // then applies the defaults of "Path" and "PathLanguages".
  void RetrieveValuesFromRegistry();
  // The same with an explicit version (major, minor, revision), for checking the arithmetic.
  void RetrieveValuesFromRegistry(int major, int minor, int revision);

  // Every key of the file in document order: its path, name and value (the tool's listing).
  struct Entry {
    std::string path, name, value;
  };
  std::vector<Entry> Entries() const;

  const std::string& file_name() const { return file_; }
  const std::string& folder() const { return folder_; }

  // The path attribute of a key: "Software\VB and VBA Program Settings\<app>\<section>".
  static std::string key_path(const std::string& app, const std::string& section);

 private:
  void m_readRegistry();
  void m_recurseKeyRegistry(const std::string& path, RegistryHelper& helper);
  void m_addNodeAndValue(const std::string& path, const std::string& name,
                         const std::string& value);
  void m_assignDefaultValues();
  void m_writeDiagnostic(const std::string& line);

  std::string folder_;
  std::string file_;
};

}  // namespace qk
