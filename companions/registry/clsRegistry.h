// "QK_Registry_Utility.clsRegistry": the per-user registry branch of an installation moved from
// Windows, read from the registry export files (*.reg) in the component's folder. Both export
// forms are read: "REGEDIT4" (8-bit) and "Windows Registry Editor Version 5.00" (UTF-16LE with a
// byte-order mark, or 8-bit). Only HKEY_CURRENT_USER is served.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "qk/companions.h"

namespace qk::companions {

class RegExport {
 public:
  // Parses one export; raises error 13 naming the line when it is not a registry export.
  void parse(const std::string& bytes, const std::string& origin);
  // Subkeys and values of a key given without the hive ("Software\...").
  std::vector<std::string> subkeys(const std::string& path) const;
  std::vector<RegistryHelper::KeyValue> values(const std::string& path) const;

 private:
  struct Key {
    std::vector<std::string> value_order;
    std::map<std::string, std::string> values;
  };
  std::map<std::string, Key> keys_;           // by lower-case path
  std::map<std::string, std::string> names_;  // lower-case path -> path as written
};

class clsRegistry : public RegistryHelper {
 public:
  clsRegistry();  // reads every *.reg of the component's folder, in name order
  std::vector<std::string> EnumRegistryKeys(unsigned long hive, const std::string& path) override;
  std::vector<KeyValue> EnumKeyValues(unsigned long hive, const std::string& path) override;

 private:
  RegExport export_;
};

void register_registry_helper();
// The exports clsRegistry reads (qk::use_registry_exports).
std::vector<std::string> exports_to_read();

}  // namespace qk::companions
