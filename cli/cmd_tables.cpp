// import-csv and export-csv: the archive's tables as CSV files.
#include <algorithm>
#include <filesystem>

#include "commands.h"
#include "network.h"
#include "qk/error.h"
#include "qk/host.h"
#include "session.h"
#include "table_import.h"

namespace qkp {

namespace {

struct TableOptions {
  std::string dir, table;
  ImportOptions import;
  bool no_pending = false;
};

void run_import(const TableOptions& o) {
  std::vector<std::filesystem::path> paths;
  for (const auto& e : std::filesystem::directory_iterator(o.dir))
    if (e.path().extension() == ".csv") paths.push_back(e.path());
  std::sort(paths.begin(), paths.end());
  if (paths.empty()) throw std::runtime_error("no .csv files in " + o.dir);
  std::vector<CsvFile> files;
  for (const auto& p : paths) files.push_back(read_csv(p.string()));
  ImportOptions io = o.import;
  io.mark = !o.no_pending;
  auto a = qk::sync::open_archive_tools();
  ImportResult r = import_tables(*a, files, io);
  for (const auto& t : r.tables)
    std::printf("%s: %ld inserted, %ld changed, %ld unchanged\n", t.table.c_str(), t.inserted,
                t.changed, t.unchanged);
  if (io.mark) std::printf("%ld rows marked pending on their configured lines\n", r.marked);
  if (io.dry_run) std::printf("dry run: nothing was written\n");
}

}  // namespace

void add_table_commands(CLI::App& app, Options&) {
  auto o = std::make_shared<TableOptions>();
  auto* import = app.add_subcommand(
      "import-csv", "Load <TABLE>.csv files (header row = column names) in one transaction");
  import->add_option("DIR", o->dir, "folder of CSV files")
      ->required()
      ->check(CLI::ExistingDirectory);
  import->add_flag("--replace", o->import.replace,
                   "update rows of the same key (the keyboard: the file's rows of a key replace "
                   "that key's rows)");
  import->add_flag("--dry-run", o->import.dry_run, "check and count, write nothing");
  import->add_flag("--no-pending", o->no_pending,
                   "do not mark new and changed records pending on their lines");
  import->callback([o] {
    try {
      run_import(*o);
}
catch (const qk::automation::Error& e) {
  fail("import failed, archive unchanged: " + qk::cp1252_to_utf8(e.description()));
}
catch (const std::exception& e) {
  fail(std::string("import failed, archive unchanged: ") + e.what());
}
}  // namespace qkp
);

auto* exp = app.add_subcommand("export-csv",
                               "Write the tables as <TABLE>.csv files, as import-csv reads them");
exp->add_option("DIR", o->dir, "folder to write into (created when missing)")->required();
exp->add_option("--table", o->table, "only this table");
exp->callback([o] {
  try {
    auto a = qk::sync::open_archive_tools();
    for (const auto& [table, rows] : export_tables(*a, o->dir, o->table))
      std::printf("%s: %ld rows\n", table.c_str(), rows);
  } catch (const qk::automation::Error& e) {
    fail("export failed: " + qk::cp1252_to_utf8(e.description()));
  } catch (const std::exception& e) {
    fail(std::string("export failed: ") + e.what());
  }
});
}

}  // namespace qkp
