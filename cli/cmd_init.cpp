// init (a new archive, and with --demo a demo installation), archive upgrade and archive copy.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <utility>

#include "qk/sync/archive_pictures.h"
#include "commands.h"
#include "demo.h"
#include "qk/sync/network.h"
#include "qk/archive.h"
#include "qk/archive_tools.h"
#include "qk/column_rules.h"
#include "qk/host.h"
#include "session.h"

namespace qkp {

namespace {

struct InitOptions {
  bool demo = false;
  bool force = false;
  std::string size = "small";
  std::string archive;  // saved as the setting Archive once the archive is made
  std::string join;     // an existing archive this folder uses, unchanged
  bool yes = false;     // --force may drop a server archive's rows without asking
  std::string store;    // saved as the setting Store: the store this folder serves
};

// --store NAME: a store's name (it becomes part of lock files' names).
void check_store_name(const std::string& store) {
  const auto& t = *qk::archive::find_table("SCALE_LINES");
  std::string p = qk::archive::value_problem(*qk::archive::find_column(t, "SL_STORE"), store);
  if (!p.empty())
    throw CLI::ValidationError("--store", "\"" + store + "\" " + p.substr(p.find(',') + 2));
}

// An archive named on the command line: a server URI as it is, a file by its absolute path.
std::string archive_location(const std::string& given, const char* what) {
  std::string location = to_8bit(given, what);
  if (location.find("://") != std::string::npos) return location;
  if (!location.ends_with(".sqlite"))
    throw std::runtime_error(std::string(what) + " \"" + given +
                             "\": an archive file's name ends with .sqlite, a server's is a "
                             "postgresql:// URI");
  return std::filesystem::absolute(location).lexically_normal().string();
}

// A setting of Appl, when one is given and differs (false: the store refused it, and said so).
bool save_appl_setting(const char* name, const std::string& value) {
  if (value.empty() || value == qk::host::setting("Appl", name)) return true;
  if (!std::filesystem::exists(qk::host::settings_file())) qk::host::create_settings_store(false);
  return qk::host::save_setting("Appl", name, value);
}
bool save_archive_setting(const std::string& archive) {
  return save_appl_setting("Archive", archive);
}

// The store this folder serves, and whether the archive has lines of it yet.
void save_store(qk::ArchiveTools& tools, const std::string& store) {
  if (store.empty() || !save_appl_setting("Store", store)) return;
  auto rs = tools.select_rows(*qk::archive::find_table("SCALE_LINES"), {{"SL_STORE", store}});
  note("this folder serves store " + store +
       (rs->Eof() ? "; the archive has no line of it yet (give it lines from the chain office: "
                    "qkp lines set … --store " +
                        store + " --all-stores)"
                  : ""));
}

// Replacing a server's archive drops what a whole chain may share: said in rows, and asked
// (`--yes` for scripts; without a terminal to ask, refused).
bool confirm_drop(const std::string& uri, bool yes) {
  long rows = 0;
  std::string where;
  try {
    qk::open_archives_read_only(true);
    auto tools = qk::sync::open_archive_tools(uri);
    where = tools->location();
    for (const auto& t : qk::archive::tables())
      for (auto rs = tools->select_rows(t, {}); !rs->Eof(); rs->MoveNext()) ++rows;
  } catch (const std::exception&) {
    rows = 0;  // no archive there (or none of this version): nothing of it to lose
  }
  qk::open_archives_read_only(false);
  if (rows == 0 || yes) return true;
  std::string what = "--force drops the archive " + where + " and its " + counted(rows, "row") +
                     " (every store that uses it loses them)";
  if (!::isatty(STDIN_FILENO)) {
    fail(what + "; add --yes to do so without being asked");
    return false;
  }
  std::fprintf(stderr, "qkp: %s. Drop them? [y/N] ", what.c_str());
  std::string answer;
  std::getline(std::cin, answer);
  if (answer == "y" || answer == "Y" || answer == "yes") return true;
  fail("nothing was dropped");
  return false;
}

// A folder that uses an existing archive as it is: the installation's default files where it
// has none, and the setting Archive. The archive is opened read-only, only to check that it is
// one of this version.
void run_join(const InitOptions& o) {
  std::string location = archive_location(o.join, "--join");
  qk::open_archives_read_only(true);
  auto tools = qk::sync::open_archive_tools(location);
  qk::open_archives_read_only(false);
  std::string folder = qk::component_folder();
  std::filesystem::create_directories(folder);
  write_default_files(folder, false);
  if (!save_archive_setting(location)) return;
  note("this folder now uses the archive " + tools->location() + " (nothing in it was changed)");
  save_store(*tools, o.store);
}

void run_init(const InitOptions& o) {
  std::string folder = qk::component_folder();
  std::filesystem::create_directories(folder);
  // Replacing the demo installation keeps the archive it was told to use (a server's, say).
  std::string archive =
      o.archive.empty() ? qk::host::setting("Appl", "Archive") : to_8bit(o.archive, "--archive");
  if (o.demo) {
    if (std::filesystem::exists(folder + "/registry.xml") && !o.force) {
      fail(folder + "/registry.xml exists; use --force to replace the demo installation");
      return;
    }
    write_demo_files(folder);
  }
  write_default_files(folder, o.demo && o.force);
  if (archive.find("://") != std::string::npos && o.force && !confirm_drop(archive, o.yes)) return;
  // A server is named in the settings only once its archive is made: one that could not be made
  // is not left there, nor its password. A file is found through the settings, as always.
  bool server = archive.find("://") != std::string::npos;
  if (!server && !save_archive_setting(archive)) return;
  auto tools = qk::sync::new_archive_tools();
  // The new archive is built aside and put in place once complete: an interrupted init leaves
  // the old archive (or none), never a half-filled one.
  tools->begin_new_archive(server ? archive : std::string(qk::kArchiveName), o.force);
  tools->begin_write();
  if (o.demo && o.size == "large")
    fill_large_archive(*tools);
  else if (o.demo)
    fill_demo_archive(*tools);
  tools->commit();
  tools->publish_new_archive();
  if (server && !save_archive_setting(archive)) return;
  note("created " + tools->location() + (o.demo ? " with the demo network" : ""));
  save_store(*tools, o.store);
}

// Every row of every table, in the tables' order, from one consistent view of the source into a
// new archive built aside (one transaction on a server) and put in place when complete.
void copy_archive(const std::string& from, const std::string& to, bool force) {
  if (from == to) throw std::runtime_error("the source and the target are the same archive");
  auto source = qk::sync::open_archive_tools(from);
  auto target = qk::sync::new_archive_tools();
  target->begin_new_archive(to, force);
  target->begin_write();
  source->begin_read();
  long total = 0;
  // Rows go over in batches: one COPY each on a server, instead of a round trip per row.
  constexpr std::size_t kBatch = 20000;
  for (const auto& t : qk::archive::tables()) {
    std::vector<std::string> cols = qk::archive::written_columns(t);
    std::vector<std::vector<qk::automation::Variant>> batch;
    for (auto rs = source->select_rows(t, {}); !rs->Eof(); rs->MoveNext(), ++total) {
      auto& values = batch.emplace_back(cols.size());
      for (std::size_t i = 0; i < cols.size(); ++i) values[i] = rs->Fields(cols[i]);
      if (batch.size() == kBatch) target->insert_rows(t, cols, std::exchange(batch, {}));
    }
    target->insert_rows(t, cols, batch);
  }
  source->end_read();
  target->commit();
  target->publish_new_archive();
  note("copied " + std::to_string(total) + " rows from " + source->location() + " to " +
       target->location());
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
  cmd->add_option("--archive", o->archive,
                  "where the archive goes: a file name or a postgresql:// URI (saved as the "
                  "setting Archive)");
  cmd->add_option("--join", o->join,
                  "use this existing archive (a .sqlite file or a postgresql:// URI) from this "
                  "folder, without changing it")
      ->excludes("--archive")
      ->excludes("--force")
      ->excludes("--demo");
  cmd->add_flag("--yes", o->yes, "with --force: drop a server archive's rows without asking");
  cmd->add_option("--store", o->store,
                  "the store of a chain this folder serves (saved as the setting Store)");
  cmd->callback([o] {
    check_store_name(o->store);
    reported("init failed", [o] { o->join.empty() ? run_init(*o) : run_join(*o); });
  });

  auto* archive = app.add_subcommand("archive", "The archive itself");
  archive->require_subcommand(1);
  auto* upgrade = archive->add_subcommand(
      "upgrade", "Bring an archive made by an earlier version to this version's schema");
  upgrade->callback([] {
    reported("archive upgrade failed", [] {
      auto tools = qk::sync::new_archive_tools();  // registers the companion's reading
      int found = qk::archive_schema_version(qk::kArchiveName);
      tools->upgrade_schema(qk::kArchiveName);
      std::string now = std::to_string(qk::archive::kSchemaVersion);
      note(found == qk::archive::kSchemaVersion
               ? "the archive already has schema version " + now + ": nothing to do"
               : "the archive was upgraded from schema version " + std::to_string(found) + " to " +
                     now + " (every row kept)");
      // Pictures that lived in this folder only now travel with their rows.
      auto archive = qk::sync::open_archive_tools();
      qk::sync::ArchiveWrite write(*archive);
      auto load = qk::sync::load_missing_pictures(*archive, qk::installation_folder());
      write.commit();
      if (load.loaded)
        note("stored " + counted(load.loaded, "picture") + " of " + qk::installation_folder() +
             "/images in the archive");
      for (const auto& m : load.missing)
        fail(m + ": no picture file in " + qk::installation_folder() +
             "/images; add it with \"qkp images add\"");
    });
  });

  struct CopyOptions {
    std::string from, to;
    bool force = false;
  };
  auto c = std::make_shared<CopyOptions>();
  auto* copy = archive->add_subcommand(
      "copy", "Copy a whole archive to another one (a .sqlite file or a postgresql:// URI)");
  copy->add_option("--from", c->from, "the archive to copy")->required();
  copy->add_option("--to", c->to, "the new archive")->required();
  copy->add_flag("--force", c->force, "replace an archive already at --to");
  copy->callback([c] {
    reported("archive copy failed", [c] {
      copy_archive(archive_location(c->from, "--from"), archive_location(c->to, "--to"), c->force);
    });
  });
}

}  // namespace qkp
