#include <cctype>
#include <cstdio>

#include "commands.h"
#include "qk/host.h"
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
    std::string v = qk::host::setting(to_8bit(*gs, "SECTION"), to_8bit(*gk, "KEY"));
    std::printf("%s\n", qk::cp1252_to_utf8(v).c_str());
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
      "init", "Create an empty store, import a registry export (*.reg) and apply defaults");
  auto force = std::make_shared<bool>(false);
  init->add_flag("--force", *force, "replace an existing store");
  init->callback([force] {
    std::string file = qk::host::settings_file();
    if (std::FILE* f = std::fopen(file.c_str(), "r")) {
      std::fclose(f);
      if (!*force) {
        fail(file + " exists; use --force to replace it");
        return;
      }
    }
    qk::host::create_settings_store(true);
    replace_windows_paths();
  });
}

}  // namespace qkp
