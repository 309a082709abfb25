// The host's start-up and the settings store seen from the host.
#include <atomic>

#include "config/clsRegistry2Xml.h"
#include "frame/globals.h"
#include "frame/paths.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk::host {

namespace {
std::atomic<bool> g_started{false};
}  // namespace

namespace {

// The error reporter calls WriteLog only while Path() is not empty: a logger that gives none
// would never hear of anything, so the host is told when it hands one over.
void check_logger(const std::shared_ptr<Logger>& logger) {
  if (logger && logger->Path().empty())
    automation::raise(automation::kInvalidProcedureCall,
                      "the logger's Path() is empty: the component writes its reports only to a "
                      "logger whose Path() names where they go");
}

}  // namespace

void start(const StartOptions& options) {
  check_logger(options.logger);
  set_component_folder(options.installation_folder);
  set_message_box(options.message_box);
  set_event_log(options.event_log);
  set_exit_process(options.exit_process);
  g_started = true;
  start_thread(options.logger);
}

void start_thread(std::shared_ptr<Logger> logger) {
  check_logger(logger);
  // Classes that only load translations read settings through a store an earlier class created.
  globals().objRegistry = std::make_shared<clsRegistry2Xml>();
  globals().objLogger = std::move(logger);
}

bool started() {
  return g_started;
}

void set_logger(std::shared_ptr<Logger> logger) {
  check_logger(logger);
  globals().objLogger = std::move(logger);
}

std::string setting(const std::string& section, const std::string& key,
                    const std::string& fallback) {
  return clsRegistry2Xml().GetSetting(kApplicationName, section, key, fallback);
}

std::vector<Setting> settings() {
  std::vector<Setting> out;
  for (auto& e : clsRegistry2Xml().Entries())
    out.push_back({e.path.substr(e.path.rfind('\\') + 1), std::move(e.name), std::move(e.value)});
  return out;
}

bool save_setting(const std::string& section, const std::string& key, const std::string& value) {
  long before = reports_on_this_thread();
  clsRegistry2Xml().SaveSetting(kApplicationName, section, key, value, true);
  return reports_on_this_thread() == before;
}

std::string settings_file() {
  return clsRegistry2Xml().file_name();
}

void create_settings_store(bool import_registry_export) {
  clsRegistry2Xml store;
  store.CreateDoc();
  if (import_registry_export)
    store.RetrieveValuesFromRegistry();
  else
    store.RetrieveValuesFromRegistry(3, 0, 0);  // a version past importing: defaults only
}

}  // namespace qk::host
