#include <unistd.h>

#include <filesystem>

#include "commands.h"
#include "db_access/archive.h"
#include "db_access/clsDbAccess.h"
#include "demo.h"
#include "frame/paths.h"
#include "session.h"

namespace qkp {

namespace {

struct InitOptions {
  bool demo = false;
  bool force = false;
  std::string size = "small";
};

void remove_archive_files(const std::string& path) {
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix);
}

void run_init(const InitOptions& o) {
  std::string folder = qk::component_folder();
  std::filesystem::create_directories(folder);
  if (o.demo) {
    // The demo's settings store names this folder; written first so the archive lands here.
    if (std::filesystem::exists(folder + "/registry.xml") && !o.force) {
      fail(folder + "/registry.xml exists; use --force to replace the demo installation");
      return;
    }
    write_demo_files(folder);
  }
  write_default_files(folder, o.demo && o.force);
  std::string path = qk::companions::clsDbAccess::locate("Archivi.mdb");
  if (std::filesystem::exists(path) && !o.force) {
    fail("the archive " + path + " exists; use --force to replace it");
    return;
  }
  // Built beside the target and renamed over it once complete: an interrupted init leaves the
  // old archive (or none), never a half-filled one.
  std::string tmp = path + ".tmp-" + std::to_string(getpid());
  remove_archive_files(tmp);
  try {
    {
      auto archive = qk::companions::Archive::create(tmp);
      if (o.demo && o.size == "large")
        fill_large_archive(*archive);
      else if (o.demo)
        fill_demo_archive(*archive);
    }
    remove_archive_files(path);
    std::filesystem::rename(tmp, path);
  } catch (...) {
    remove_archive_files(tmp);
    throw;
  }
  std::fprintf(stderr, "qkp: created %s%s\n", path.c_str(), o.demo ? " with the demo network" : "");
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
    } catch (const std::exception& e) {
      fail(std::string("init failed: ") + e.what());
    }
  });
}

}  // namespace qkp
