#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "commands.h"
#include "qk/archive.h"
#include "qk/host.h"
#include "qk/registry_helper.h"
#include "session.h"

namespace qkp {

namespace {

// A folder of a Windows machine: a drive letter ("C:") or a backslash.
bool windows_path(const std::string& v) {
  return v.find('\\') != std::string::npos ||
         (v.size() >= 2 && v[1] == ':' && std::isalpha(static_cast<unsigned char>(v[0])));
}

// An imported desktop store names the desktop's folders; on this machine the installation's
// own folders stand instead (the other imported settings are kept).
void replace_windows_paths() {
  struct Own {
    const char* key;
    const char* value;
    const char* meaning;
  } own[] = {{"Path", ".", "this installation folder"},
             {"PathLanguages", "Languages", "its Languages folder"},
             {"Archive", "", "the archive in the installation folder"}};
  for (const auto& o : own) {
    std::string v = qk::host::setting("Appl", o.key);
    if (!windows_path(v)) continue;
    qk::host::save_setting("Appl", o.key, o.value);
    note(std::string("the imported setting ") + o.key + " named the Windows folder \"" +
         qk::cp1252_to_utf8(v) + "\"; it now names " + o.meaning + " (\"" + o.value + "\")");
  }
}
// A setting as the tool shows it: text in UTF-8, a server archive's password masked.
std::string shown_value(const qk::host::Setting& s) {
  std::string v = qk::cp1252_to_utf8(s.value);
  return s.name == "Archive" ? qk::shown_location(v) : v;
}

// Creates the store, importing the exports. The exports are read and checked before the store
// is touched, and a store whose import still reports a problem is put back as it was: a refused
// export never costs the settings an installation had.
void init_store(bool force, const std::vector<std::string>& exports) {
  std::string file = qk::host::settings_file();
  std::vector<qk::host::Setting> old = qk::host::settings();
  std::ifstream in(file, std::ios::binary);
  bool existed = static_cast<bool>(in);
  std::string before((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (existed && !force) return fail(file + " exists; use --force to replace it");
  qk::use_registry_exports(exports);
  if (qk::registry_exports().empty())
    note("no registry export (*.reg) in " + qk::component_folder() +
         ": the store gets the defaults only (to import one: qkp settings init FILE.reg)");
  try {
    qk::check_registry_exports();
  } catch (const qk::automation::Error& e) {
    return fail(qk::cp1252_to_utf8(e.description()) + "; " + file +
                (existed ? " was left as it was" : " was not created"));
  }
  if (existed && !old.empty()) {
    std::string dropped;
    for (const auto& s : old)
      dropped += (dropped.empty() ? "" : ", ") + qk::cp1252_to_utf8(s.name) + "=" + shown_value(s);
    note("replacing " + file + ": its " + std::to_string(old.size()) +
         " settings are thrown away (" + dropped + ")");
  }
  long reports = qk::host::reports_on_this_thread();
  qk::host::create_settings_store(true);
  if (qk::host::reports_on_this_thread() != reports) {
    if (existed) qk::save_file_atomically(file, before);
    return fail(
        "the import failed (see above); " + file +
        (existed ? " was put back as it was" : " holds what was imported before the failure"));
  }
  replace_windows_paths();
}

}  // namespace

void add_settings_command(CLI::App& app, Options&) {
  auto* cmd = app.add_subcommand("settings", "Read and write the settings store (registry.xml)");
  cmd->require_subcommand(1);

  auto* get = cmd->add_subcommand("get", "Print a setting (the first key of that name)");
  auto gs = std::make_shared<std::string>();
  auto gk = std::make_shared<std::string>();
  get->add_option("SECTION", *gs)->required();
  get->add_option("KEY", *gk)->required();
  get->callback([gs, gk] {
    std::string key = to_8bit(*gk, "KEY");
    for (const auto& s : qk::host::settings())
      if (s.name == key) {
        std::printf("%s\n", qk::cp1252_to_utf8(s.value).c_str());
        return;
      }
    fail("no setting " + *gk + " (section " + *gs + ") in " + qk::host::settings_file() +
         " (qkp settings list shows them all)");
  });

  auto* list = cmd->add_subcommand("list", "Print every setting: section, name and value");
  list->callback([] {
    for (const auto& s : qk::host::settings())
      std::printf("%-8s %-16s %s\n", qk::cp1252_to_utf8(s.section).c_str(),
                  qk::cp1252_to_utf8(s.name).c_str(), shown_value(s).c_str());
  });

  auto* set = cmd->add_subcommand("set", "Write a setting");
  auto ss = std::make_shared<std::string>();
  auto sk = std::make_shared<std::string>();
  auto sv = std::make_shared<std::string>();
  set->add_option("SECTION", *ss)->required();
  set->add_option("KEY", *sk)->required();
  set->add_option("VALUE", *sv)->required();
  set->callback([ss, sk, sv] {
    qk::host::save_setting(to_8bit(*ss, "SECTION"), to_8bit(*sk, "KEY"), to_8bit(*sv, "VALUE"));
  });

  auto* init = cmd->add_subcommand(
      "init",
      "Create an empty store, import a registry export (the files given, or every *.reg of the "
      "component's folder) and apply defaults");
  struct InitOptions {
    bool force = false;
    std::vector<std::string> exports;
  };
  auto io = std::make_shared<InitOptions>();
  init->add_flag("--force", io->force, "replace an existing store");
  init->add_option("EXPORT", io->exports, "registry exports (*.reg) to import")
      ->check(CLI::ExistingFile);
  init->callback([io] { init_store(io->force, io->exports); });
}

}  // namespace qkp
