#include "frame/creation.h"

#include "config/clsRegistry2Xml.h"
#include "frame/globals.h"
#include "frame/paths.h"
#include "frame/report_error.h"
#include "qk/host.h"

namespace qk {

namespace {

clsRegistry2Xml& registry() {
  auto& r = globals().objRegistry;
  if (!r)
    automation::raise(automation::kObjectNotSet,
                      automation::standard_description(automation::kObjectNotSet) +
                          ": this thread has no settings store yet (call qk::host::start or "
                          "qk::host::start_thread first)");
  return *r;
}

}  // namespace

void run_creation_sequence(const char* class_name, unsigned steps,
                           const std::function<void()>& extra, const char* translations_label) {
  trap({"Class_Initialize", class_name}, [&] {
    Globals& g = globals();
    if (steps & kStepCreateRegistry) g.objRegistry = std::make_shared<clsRegistry2Xml>();
    if (steps & kStepReadSilent)
      g.booSilent = registry().GetSetting(kApplicationName, "Debug", "Silent", "Y") == "Y";
    if (steps & kStepReadPath) {
      // A relative folder is taken inside the component's own, so that a copied installation
      // keeps using its own files.
      std::string path =
          path_in(component_folder(),
                  registry().GetSetting(kApplicationName, "Appl", "Path", component_folder()));
      g.strApplPath = with_trailing_separator(path);
    }
    if (steps & kStepOpenDatabase) open_database();
    if ((steps & kStepExtra) && extra) extra();
    if (steps & kStepLoadTranslations)
      m_LoadTranslations(translations_label ? translations_label : class_name);
  });
}

void open_database() {
  // The slot is overwritten before Initialize, as the assignment happens first.
  globals().objDbAccess = automation::create_as<DbAccess>(kDbAccessId);
  globals().objDbAccess->Initialize(automation::Variant(kArchiveName));
}

void m_LoadTranslations(const char* class_label) {
  trap({"m_LoadTranslations", class_label}, [&] {
    Globals& g = globals();
    g.objTranslate = automation::create_as<Translate>(kTranslateId);
    std::string language = registry().GetSetting(kApplicationName, "Appl", "LanguageId", "LAN_ITA");
    g.objTranslate->LangCode(language);
    g.objTranslate->ApplicationName("QK");
    g.objTranslate->ModuleName("MODUTILITY");
    g.colStrings = g.objTranslate->StringValues();
  });
}

}  // namespace qk
