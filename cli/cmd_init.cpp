// init (a new archive, and with --demo a demo installation) and archive upgrade.
#include <filesystem>

#include "commands.h"
#include "demo.h"
#include "qk/archive_tools.h"
#include "qk/host.h"
#include "session.h"

namespace qkp {

namespace {

struct InitOptions {
  bool demo = false;
  bool force = false;
  std::string size = "small";
};

// The database companion's tools, not yet opened on an archive.
std::shared_ptr<qk::ArchiveTools> unopened_tools() {
  auto tools =
      std::dynamic_pointer_cast<qk::ArchiveTools>(qk::automation::create_object(qk::kDbAccessId));
  if (!tools) throw std::runtime_error("the database component offers no tools' members");
  return tools;
}

void run_init(const InitOptions& o) {
  std::string folder = qk::component_folder();
  std::filesystem::create_directories(folder);
  if (o.demo) {
    if (std::filesystem::exists(folder + "/registry.xml") && !o.force) {
      fail(folder + "/registry.xml exists; use --force to replace the demo installation");
      return;
    }
    write_demo_files(folder);
  }
  write_default_files(folder, o.demo && o.force);
  auto tools = unopened_tools();
  // The new archive is built aside and put in place once complete: an interrupted init leaves
  // the old archive (or none), never a half-filled one.
  tools->begin_new_archive(qk::kArchiveName, o.force);
  tools->begin_write();
  if (o.demo && o.size == "large")
    fill_large_archive(*tools);
  else if (o.demo)
    fill_demo_archive(*tools);
  tools->commit();
  tools->publish_new_archive();
  note("created " + tools->location() + (o.demo ? " with the demo network" : ""));
}

}  // namespace

void add_init_command(CLI::App& app, Options&) {
  auto o = std::make_shared<InitOptions>();
  auto* cmd = app.add_subcommand("init",
                                 "Create an empty archive (and, with --demo, a demo "
                                 "installation) in the installation folder");
  cmd->add_flag("--demo", o->demo, "fill it with a small demo network and its files");
  cmd->add_flag("--force", o->force, "replace an existing archive");
  cmd->add_option("--size", o->size, "small (the demo network) or large (for measurements)")
      ->check(CLI::IsMember({"small", "large"}));
  cmd->callback([o] {
    try {
      run_init(*o);
    } catch (const qk::automation::Error& e) {
      fail("init failed: " + qk::cp1252_to_utf8(e.description()));
    } catch (const std::exception& e) {
      fail(std::string("init failed: ") + e.what());
    }
  });

  auto* archive = app.add_subcommand("archive", "The archive itself");
  archive->require_subcommand(1);
  auto* upgrade = archive->add_subcommand(
      "upgrade", "Bring an archive made by an earlier version to this version's schema");
  upgrade->callback([] {
    unopened_tools()->upgrade_schema(qk::kArchiveName);
    note("the archive is up to date");
  });
}

}  // namespace qkp
