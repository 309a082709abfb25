#include "config/clsConfigurationPrs.h"

#include "automation/conversions.h"
#include "config/clsRegistry2Xml.h"
#include "config/xml_file.h"
#include "frame/globals.h"
#include "frame/paths.h"
#include "frame/report_error.h"
#include "qk/companions.h"
#include "qk/host.h"

namespace qk {

using config::from_xml;
using config::select_single;
using config::to_xml;

namespace {

constexpr const char* kFileName = "Parameters.xml";
constexpr const char* kScannerDescription = "Impostazioni dello scanner per la lettura del barcode";
constexpr const char* kPersonalizationDescription =
    "Impostazioni personalizzate per il codice EAN128";

// The labels are fixed, slips included: reports are compared with them.
TrapLabel old_label(const char* procedure) {
  return {procedure, "clsConfiguration", "prjConfiguration"};
}
TrapLabel new_label(const char* procedure) {
  return {procedure, "clsConfigurationPrs", "QKConfig"};
}

pugi::xml_node must(const pugi::xpath_node& n) {
  if (!n.node()) automation::raise(automation::kObjectNotSet);
  return n.node();
}

// Attribute by position, as the file is addressed: error 91 when the node has fewer.
pugi::xml_attribute attribute_at(const pugi::xml_node& node, int index) {
  int i = 0;
  for (pugi::xml_attribute a : node.attributes())
    if (i++ == index) return a;
  automation::raise(automation::kObjectNotSet);
}

std::string parameter(const pugi::xml_document& doc, const char* query, const std::string& name,
                      bool missing_is_empty) {
  auto n = select_single(doc, query);
  if (!n.node()) {
    if (missing_is_empty) return "";
    automation::raise(automation::kObjectNotSet);
  }
  for (pugi::xml_attribute a : n.node().attributes())
    if (from_xml(a.name()) == name) return from_xml(a.value());
  return "";
}

std::string language() {
  clsRegistry2Xml store;
  return store.GetSetting(kApplicationName, "Appl", "LanguageId", "ITA");
}

pugi::xml_node append_item(pugi::xml_node parent, const std::string& ai,
                           const std::string& contents, const std::string& format,
                           const std::string& coupling, bool only_values) {
  pugi::xml_node item = parent.append_child("ITEM");
  item.append_attribute("AI") = to_xml(ai).c_str();
  item.append_attribute("CONTENTS") = to_xml(contents).c_str();
  item.append_attribute("FORMAT") = to_xml(format).c_str();
  item.append_attribute("COUPLING") = to_xml(coupling).c_str();
  item.append_attribute("ONLYVALUES") = only_values ? "True" : "False";
  return item;
}

}  // namespace

clsConfigurationPrs::clsConfigurationPrs() {
  trap(old_label("Class_Initialize"),
       [&] { file_ = installation_folder() + kPathSeparator + kFileName; });
}

automation::StringArray clsConfigurationPrs::RetrieveBarcodeNature() {
  automation::StringArray result;
  trap(old_label("RetrieveBarcodeNature"), [&] {
    auto translate = automation::create_as<Translate>(kTranslateId);
    translate->LangCode(language());
    translate->ApplicationName("QK");
    translate->ModuleName("FRMBARCODE");
    auto strings = translate->StringValues();
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto natures = automation::StringArray::sized(0, 7);
    for (pugi::xml_node child : must(select_single(doc, "//COMMON")).children()) {
      int16_t n = automation::Variant(from_xml(attribute_at(child, 0).value())).to_int16();
      natures[n] = collection_item(strings, "BARCODE_" + std::to_string(n));
    }
    result = std::move(natures);
  });
  return result;
}

std::string clsConfigurationPrs::RetrieveVeltaGeneralParameter(std::string& strParameterName) {
  std::string result;
  trap(old_label("RetrieveVeltaGeneralParameter"), [&] {
    auto doc = config::shared_document(file_);
    result = parameter(*doc, "//VELTA", strParameterName, false);
  });
  return result;
}

std::string clsConfigurationPrs::RetrieveOrvaTopGeneralParameter(std::string& strParameterName) {
  std::string result;
  trap(old_label("RetrieveVeltaGeneralParameter"), [&] {
    auto doc = config::shared_document(file_);
    result = parameter(*doc, "//ORVATOP", strParameterName, false);
  });
  return result;
}

std::string clsConfigurationPrs::RetrieveCommonGeneralParameter(std::string& strParameterName) {
  std::string result;
  trap(old_label("RetrieveCommonGeneralParameter"), [&] {
    auto doc = config::shared_document(file_);
    result = parameter(*doc, "//ALLDEVICES", strParameterName, true);
  });
  return result;
}

std::string clsConfigurationPrs::RetrieveArchiveInUse(const std::string& key) {
  std::string result;
  trap(old_label("RetrieveVeltaGeneralParameter"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    for (pugi::xml_node child : must(select_single(doc, "//ARCHIVES")).children())
      if (from_xml(attribute_at(child, 0).value()) == key) {
        result = from_xml(attribute_at(child, 1).value());
        return;
      }
  });
  return result;
}

automation::StringArray clsConfigurationPrs::RetrieveConvertionTable() {
  automation::StringArray result;
  trap(old_label("RetrieveVeltaGeneralParameter"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    std::string lang = language();
    if (!select_single(doc, "//VALUE[@LANGCODE='" + lang + "']").node()) lang = "ITA";
    for (pugi::xml_node child : must(select_single(doc, "//ASCII_CROSS")).children()) {
      if (from_xml(attribute_at(child, 0).value()) != lang) continue;
      for (pugi::xml_attribute a : child.attributes())
        if (std::string(a.name()) != "LANGCODE")
          result.push_back(from_xml(a.name()) + "=" + from_xml(a.value()));
    }
  });
  return result;
}

void clsConfigurationPrs::SaveBarcodeCommSettings(int16_t intCommPort,
                                                  const std::string& strSettings) {
  trap(new_label("SaveBarcodeCommSettings"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto scanner = select_single(doc, "//BARCODE/SCANNER");
    if (scanner.node()) {
      attribute_at(scanner.node(), 1).set_value(intCommPort);
      attribute_at(scanner.node(), 2).set_value(to_xml(strSettings).c_str());
    } else {
      pugi::xml_node barcode = must(select_single(doc, "//BARCODE"));
      pugi::xml_node s = barcode.append_child("SCANNER");
      s.append_attribute("DESCRIPTION") = to_xml(kScannerDescription).c_str();
      s.append_attribute("COMMPORT") = intCommPort;
      s.append_attribute("COMMSETTINGS") = to_xml(strSettings).c_str();
    }
    config::save_document_atomically(doc, file_);
  });
}

automation::StringArray clsConfigurationPrs::RetrieveBarcodeCommSettings() {
  automation::StringArray result;
  trap(new_label("RetrieveBarcodeCommSettings"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto scanner = select_single(doc, "//SCANNER");
    if (!scanner.node()) {
      result = automation::StringArray({"-1", "-1"});
      return;
    }
    result = automation::StringArray({from_xml(attribute_at(scanner.node(), 1).value()),
                                      from_xml(attribute_at(scanner.node(), 2).value())});
  });
  return result;
}

void clsConfigurationPrs::SaveApplicationIdentifier(const std::string& strAI,
                                                    const std::string& strContents,
                                                    const std::string& strFormat,
                                                    const std::string& strCoupling,
                                                    bool booOnlyValues) {
  trap(new_label("SaveApplicationIdentifier"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto personalization = select_single(doc, "//BARCODE/EAN128/PERSONALIZATION");
    if (personalization.node()) {
      pugi::xml_node found;
      for (pugi::xml_node child : personalization.node().children())
        if (from_xml(attribute_at(child, 0).value()) == strAI) {
          found = child;
          break;
        }
      if (!found) {
        append_item(personalization.node(), strAI, strContents, strFormat, strCoupling,
                    booOnlyValues);
      } else {
        for (pugi::xml_attribute a : found.attributes()) {
          std::string name = a.name();
          // An empty argument keeps the stored value; ONLYVALUES is always written.
          if (name == "CONTENTS" && !strContents.empty())
            a.set_value(to_xml(strContents).c_str());
          else if (name == "FORMAT" && !strFormat.empty())
            a.set_value(to_xml(strFormat).c_str());
          else if (name == "COUPLING" && !strCoupling.empty())
            a.set_value(to_xml(strCoupling).c_str());
          else if (name == "ONLYVALUES")
            a.set_value(booOnlyValues ? "True" : "False");
        }
      }
    } else {
      // A new EAN128 element even when one without PERSONALIZATION exists.
      pugi::xml_node barcode = must(select_single(doc, "//BARCODE"));
      pugi::xml_document scratch;
      pugi::xml_node ean = scratch.append_child("EAN128");
      pugi::xml_node p = ean.append_child("PERSONALIZATION");
      p.append_attribute("DESCRIPTION") = to_xml(kPersonalizationDescription).c_str();
      append_item(p, strAI, strContents, strFormat, strCoupling, booOnlyValues);
      barcode.append_copy(ean);
    }
    config::save_document_atomically(doc, file_);
  });
}

automation::StringArray clsConfigurationPrs::RetrieveApplicationIdentifier(
    const std::string& strAI) {
  automation::StringArray result;
  trap(new_label("RetrieveApplicationIdentifier"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto item = select_single(doc, "//BARCODE/EAN128/PERSONALIZATION/ITEM[@AI='" + strAI + "']");
    auto values = automation::StringArray::sized(0, 4);
    if (item.node())
      for (int i = 0; i < 5; ++i) values[i] = from_xml(attribute_at(item.node(), i).value());
    result = std::move(values);
  });
  return result;
}

uint8_t clsConfigurationPrs::RetrieveTimeout(const std::string& strTimeout) {
  uint8_t result = 0;
  trap(new_label("RetrieveTimeout"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    std::string value;
    if (auto t = select_single(doc, "//TIMEOUT"); t.node())
      for (pugi::xml_attribute a : t.node().attributes())
        if (from_xml(a.name()) == strTimeout) {
          value = from_xml(a.value());
          break;
        }
    if (value.empty()) {
      result = 150;
      return;
    }
    // A byte: a value above 255 overflows, text is a type mismatch.
    double v = automation::round_half_even(automation::Variant(value).to_double());
    if (v < 0 || v > 255) automation::raise(automation::kOverflow);
    result = static_cast<uint8_t>(v);
  });
  return result;
}

void clsConfigurationPrs::DeleteApplicationIdentifier(const std::string& strAI) {
  trap(new_label("RetrieveApplicationIdentifier"), [&] {
    pugi::xml_document doc;
    config::load_document(doc, file_);
    auto item = select_single(doc, "//BARCODE/EAN128/PERSONALIZATION/ITEM[@AI='" + strAI + "']");
    if (!item.node()) return;
    item.node().parent().remove_child(item.node());
    config::save_document_atomically(doc, file_);
  });
}

namespace {
bool all_devices_switch(const std::string& file, const char* name) {
  auto doc = config::shared_document(file);
  auto all = select_single(*doc, "//ALLDEVICES");
  if (!all.node()) return true;  // no element: true; no attribute: false
  return automation::ucase(from_xml(all.node().attribute(name).value())) == "Y";
}
}  // namespace

bool clsConfigurationPrs::TrimValues() {
  bool result = false;
  trap(new_label("TrimValues"), [&] { result = all_devices_switch(file_, "TRIM_VALUES"); });
  return result;
}

bool clsConfigurationPrs::ShowOrva2000() {
  bool result = false;
  trap(new_label("ShowOrva2000"), [&] { result = all_devices_switch(file_, "SHOW_2000"); });
  return result;
}

}  // namespace qk
