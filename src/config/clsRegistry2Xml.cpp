#include "config/clsRegistry2Xml.h"

#include <cstdio>
#include <fstream>

#include "automation/conversions.h"
#include "config/credentials.h"
#include "config/xml_file.h"
#include "frame/paths.h"
#include "frame/report_error.h"
#include "qk/companions.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/version.h"

namespace qk {

namespace {

constexpr const char* kClass = "clsRegistry2Xml";
constexpr const char* kProject = "QK";
constexpr const char* kSettingsRoot = "Software\\VB and VBA Program Settings";
constexpr const char* kFileName = "registry.xml";
constexpr const char* kDiagnosticsFile = "languages.log";
constexpr int kLastImportingVersion = 21226;

TrapLabel label(const char* procedure) {
  return {procedure, kClass, kProject};
}

// Runs body under the trap and, for the procedures that log, writes the failure to the event
// log as an information entry "clsRegistry2Xml@<procedure> <details>".
template <class Body>
void trapped_and_logged(const char* procedure, bool report, Body&& body) {
  try {
    body();
  } catch (const automation::Error& e) {
    host::event_log(host::kEventInformation, std::string(kClass) + "@" + procedure + " " +
                                                 std::to_string(e.number()) + " " +
                                                 e.description());
    if (report) report_trapped(label(procedure), e.number(), e.description());
  } catch (const std::exception& e) {
    host::event_log(host::kEventInformation,
                    std::string(kClass) + "@" + procedure + " " + e.what());
    if (report) report_trapped(label(procedure), automation::kDatabaseError, e.what());
  }
}

// The "keys" element every write appends to; a store without one cannot take a new key.
pugi::xml_node keys_element(const pugi::xml_document& doc, const std::string& file) {
  auto n = config::select_single(doc, "//keys");
  if (!n.node())
    automation::raise(automation::kObjectNotSet,
                      automation::standard_description(automation::kObjectNotSet) + ": " + file +
                          " is missing or has no keys element (create it with "
                          "\"qkp settings init\")");
  return n.node();
}

std::string default_folder() {
  std::string folder = per_user_setting("Debug", "UseThisPath");
  if (!folder.empty()) {
    while (folder.size() > 1 && folder.back() == kPathSeparator) folder.pop_back();
    return folder;
  }
  folder = component_folder();
  std::string upper = automation::ucase(folder);
  // A component installed in ...\DEP keeps its store in the parent: cut before the occurrence
  // and one more character.
  auto at = upper.find("DEP");
  if (at != std::string::npos) folder = folder.substr(0, at == 0 ? 0 : at - 1);
  return folder;
}

// The store is written for its owner only while one of its values carries a password.
void save_store(const pugi::xml_document& doc, const std::string& file) {
  bool secret = false;
  for (const pugi::xpath_node& key : doc.select_nodes("//keys/key"))
    secret = secret || config::holds_password(key.node().attribute("value").value());
  config::save_document_atomically(doc, file, secret ? 0600 : 0644);
}

}  // namespace

clsRegistry2Xml::clsRegistry2Xml() {
  folder_ = default_folder();
  file_ = folder_ + kPathSeparator + kFileName;
}

std::string clsRegistry2Xml::key_path(const std::string& app, const std::string& section) {
  return std::string(kSettingsRoot) + "\\" + app + "\\" + section;
}

std::string clsRegistry2Xml::GetSetting(const std::string&, const std::string&,
                                        const std::string& strKeyName,
                                        const std::string& strDefault) {
  std::string result;
  trap(label("GetSetting"), [&] {
    result = strDefault;
    auto doc = config::shared_document(file_);
    auto key = config::select_single(*doc, "//keys/key[@name='" + strKeyName + "']");
    if (!key.node()) return;
    std::string value = config::from_xml(key.node().attribute("value").value());
    if (!value.empty()) result = value;
  });
  return result;
}

std::vector<clsRegistry2Xml::Entry> clsRegistry2Xml::Entries() const {
  std::vector<Entry> out;
  auto doc = config::shared_document(file_);
  for (pugi::xml_node k : doc->child("root").child("keys").children("key"))
    out.push_back({config::from_xml(k.attribute("path").value()),
                   config::from_xml(k.attribute("name").value()),
                   config::from_xml(k.attribute("value").value())});
  return out;
}

void clsRegistry2Xml::SaveSetting(const std::string& strAppName, const std::string& strSection,
                                  const std::string& strKeyName, const std::string& strValue,
                                  bool booShowError) {
  trapped_and_logged("SaveSetting", booShowError, [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    std::string path = key_path(strAppName, strSection);
    auto key = config::select_single(
        doc, "//keys/key[@name='" + strKeyName + "' and @path='" + path + "']");
    if (key.node()) {
      key.node().attribute("value").set_value(config::to_xml(strValue).c_str());
    } else {
      pugi::xml_node keys = keys_element(doc, file_);
      pugi::xml_node k = keys.append_child("key");
      k.append_attribute("path") = config::to_xml(path).c_str();
      k.append_attribute("name") = config::to_xml(strKeyName).c_str();
      k.append_attribute("value") = config::to_xml(strValue).c_str();
    }
    save_store(doc, file_);
  });
}

void clsRegistry2Xml::CreateDoc() {
  trapped_and_logged("CreateDoc", true, [&] {
    pugi::xml_document doc;
    doc.append_child("root").append_child("keys");
    save_store(doc, file_);
  });
}

void clsRegistry2Xml::RetrieveValuesFromRegistry() {
  RetrieveValuesFromRegistry(QK_VERSION_MAJOR, QK_VERSION_MINOR, QK_VERSION_PATCH);
}

void clsRegistry2Xml::RetrieveValuesFromRegistry(int major, int minor, int revision) {
  trapped_and_logged("RetrieveValuesFromRegistry", true, [&] {
    // The version number is 16-bit arithmetic: a major version of 4 or more overflows.
    using automation::checked_int16;
    long version = checked_int16(
        checked_int16(checked_int16(major * 10000L) + checked_int16(minor * 1000L)) + revision);
    if (version <= kLastImportingVersion) {
      automation::create_object(kRegistryHelperId);  // fails early when no helper is installed
      m_readRegistry();
    }
    m_assignDefaultValues();
  });
}

void clsRegistry2Xml::m_readRegistry() {
  trapped_and_logged("m_readRegistry", true, [&] {
    auto helper = automation::create_as<RegistryHelper>(kRegistryHelperId);
    std::string base = std::string(kSettingsRoot) + "\\" + "Varlen System";
    auto subkeys = helper->EnumRegistryKeys(RegistryHelper::kHkeyCurrentUser, base);
    for (const auto& v : helper->EnumKeyValues(RegistryHelper::kHkeyCurrentUser, base))
      m_addNodeAndValue(base, v.sKey, v.sValue);
    for (const auto& s : subkeys) m_recurseKeyRegistry(base + "\\" + s, *helper);
  });
}

void clsRegistry2Xml::m_recurseKeyRegistry(const std::string& path, RegistryHelper& helper) {
  // Resume-next for error 9 only (an empty subkey list): that statement is skipped and the walk
  // goes on. Error 92 is logged and any other error reported; either ends this procedure.
  struct End {};
  auto step = [&](auto&& f) {
    try {
      f();
    } catch (const automation::Error& e) {
      if (e.number() == automation::kSubscriptOutOfRange) return;
      if (e.number() == automation::kForLoopNotInitialized)
        host::event_log(host::kEventInformation,
                        "Rilevato errore 92 in procedura clsRegistry2Xml.m_recurseKeyRegistry");
      else
        report_trapped(label("m_recurseKeyRegistry"), e.number(), e.description());
      throw End{};
    }
  };
  try {
    std::vector<std::string> subkeys;
    step([&] { subkeys = helper.EnumRegistryKeys(RegistryHelper::kHkeyCurrentUser, path); });
    step([&] {
      for (const auto& v : helper.EnumKeyValues(RegistryHelper::kHkeyCurrentUser, path))
        m_addNodeAndValue(path, v.sKey, v.sValue);
    });
    for (const auto& s : subkeys) step([&] { m_recurseKeyRegistry(path + "\\" + s, helper); });
  } catch (const End&) {
  }
}

void clsRegistry2Xml::m_addNodeAndValue(const std::string& path, const std::string& name,
                                        const std::string& value) {
  trapped_and_logged("m_addNodeAndValue", true, [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto key = config::select_single(doc, "//keys/key[@name='" + name + "']");
    if (key.node()) {
      key.node().attribute("value").set_value(config::to_xml(value).c_str());
    } else {
      pugi::xml_node keys = keys_element(doc, file_);
      pugi::xml_node k = keys.append_child("key");
      k.append_attribute("path") = config::to_xml(path).c_str();
      k.append_attribute("name") = config::to_xml(name).c_str();
      k.append_attribute("value") = config::to_xml(value).c_str();
    }
    save_store(doc, file_);
    m_writeDiagnostic("clsRegistry2Xml@m_addNodeAndValue " + path + "\\" + name + "=" + value);
  });
}

void clsRegistry2Xml::m_assignDefaultValues() {
  trapped_and_logged("m_assignDefaultValues", true, [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    std::string p = key_path("Varlen System", "Appl");
    std::string here = component_folder();
    auto fill = [&](const char* name, const std::string& value) {
      auto key = config::select_single(
          doc, std::string("//keys/key[@name='") + name + "' and @path='" + p + "']");
      if (key.node() && config::from_xml(key.node().attribute("value").value()).empty())
        key.node().attribute("value").set_value(config::to_xml(value).c_str());
    };
    fill("Path", here);
    fill("PathLanguages", here + kPathSeparator + "Languages");
    save_store(doc, file_);
  });
}

void clsRegistry2Xml::m_writeDiagnostic(const std::string& line) {
  // Appends; created when missing. A failure to write diagnostics is not worth a report.
  std::ofstream out(folder_ + kPathSeparator + kDiagnosticsFile, std::ios::app | std::ios::binary);
  if (out) out << cp1252_to_utf8(config::without_password(line)) << "\n";
}

}  // namespace qk
