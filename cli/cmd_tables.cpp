// import-csv and export-csv: the archive's tables as CSV files.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <sstream>

#include "commands.h"
#include "mdb_import.h"
#include "qk/sync/network.h"
#include "qk/error.h"
#include "qk/host.h"
#include "session.h"
#include "table_import.h"

namespace qkp {

namespace {

struct TableOptions {
  std::string dir, table, delimiter, encoding = "detect", mdb, tables;
  ImportOptions import;
  bool no_pending = false, ignore_extra = false;
};

void import_files(const std::vector<CsvInput>& files, const TableOptions& o,
                  const std::string& beside) {
  ImportOptions io = o.import;
  io.mark = !o.no_pending;
  io.pictures_folder = beside;
  auto a = qk::sync::open_archive_tools();
  ImportResult r = import_tables(*a, files, io);
  for (const auto& n : r.notes) note(n);
  for (const auto& d : r.diffs) std::printf("%s\n", d.c_str());
  for (const auto& t : r.tables)
    std::printf("%s: %ld inserted, %ld changed, %ld unchanged\n", t.table.c_str(), t.inserted,
                t.changed, t.unchanged);
  if (io.mark)
    std::printf("%s marked pending on their configured lines\n", counted(r.marked, "row").c_str());
  // Tables without flags whose rows records are built from: their changes show by content.
  auto by_content = [](std::string_view name) {
    for (const auto& c : qk::archive::kCascades)
      if (c.child == name) name = c.parent;
    const auto* table = qk::archive::find_table(name);
    return table && table->flags.empty() &&
           qk::archive::find_column(*table, qk::archive::kRowVersionColumn);
  };
  for (const auto& t : r.tables) {
    if (t.inserted + t.changed > 0 && by_content(t.table))
      std::printf(
          "%s: the records built from the changed rows are pending by content on every "
          "line that takes them (qkp pending)\n",
          t.table.c_str());
  }
  if (io.dry_run) std::printf("dry run: nothing was written\n");
}

void run_import(const TableOptions& o) {
  std::vector<std::filesystem::path> paths;
  for (const auto& e : std::filesystem::directory_iterator(o.dir))
    if (e.path().extension() == ".csv") paths.push_back(e.path());
  std::sort(paths.begin(), paths.end());
  if (paths.empty()) throw std::runtime_error("no .csv files in " + o.dir);
  CsvFormat format;
  if (!o.delimiter.empty()) format.delimiter = o.delimiter == "tab" ? '\t' : o.delimiter[0];
  format.encoding = o.encoding == "cp1252"  ? CsvEncoding::Cp1252
                    : o.encoding == "utf-8" ? CsvEncoding::Utf8
                                            : CsvEncoding::Detect;
  format.ignore_extra = o.ignore_extra;
  std::vector<CsvInput> files;
  for (const auto& p : paths) files.push_back(csv_file(p.string(), format));
  import_files(files, o, o.dir);
}

void run_import_mdb(const TableOptions& o) {
  std::vector<std::string> only;
  std::stringstream list(o.tables);
  for (std::string t; std::getline(list, t, ',');)
    if (!t.empty()) only.push_back(t);
  MdbTables m = read_mdb(o.mdb, only);
  for (const auto& s : m.skipped) note(o.mdb + ": table " + s + " is not in the archive; skipped");
  if (m.files.empty()) throw std::runtime_error(o.mdb + " has no table the archive knows");
  import_files(m.files, o, std::filesystem::absolute(o.mdb).parent_path().string());
}

// Runs an import; any refusal leaves the archive as it was, and says so.
void guarded(const std::function<void()>& f) {
  reported("import failed, archive unchanged", f);
}

void add_import_options(CLI::App* cmd, TableOptions& o) {
  cmd->add_flag("--replace", o.import.replace,
                "update rows of the same key (the keyboard: the file's rows of a key replace "
                "that key's rows)");
  auto* dry = cmd->add_flag("--dry-run", o.import.dry_run, "check and count, write nothing");
  cmd->add_flag("--diff", o.import.diff, "list every new and changed row and its changed columns")
      ->needs(dry);
  cmd->add_flag("--no-pending", o.no_pending,
                "do not mark new and changed records pending on their lines");
}

}  // namespace

void add_table_commands(CLI::App& app, Options&) {
  auto o = std::make_shared<TableOptions>();
  auto* import = app.add_subcommand(
      "import-csv", "Load <TABLE>.csv files (header row = column names) in one transaction");
  import->add_option("DIR", o->dir, "folder of CSV files")
      ->required()
      ->check(CLI::ExistingDirectory);
  add_import_options(import, *o);
  import
      ->add_option("--delimiter", o->delimiter,
                   "the field separator: , ; or tab (default: the header line's , or ;)")
      ->check(CLI::IsMember({",", ";", "tab"}));
  import
      ->add_option("--encoding", o->encoding,
                   "utf-8 or cp1252 (default: utf-8 when the bytes are UTF-8, else cp1252)")
      ->check(CLI::IsMember({"detect", "utf-8", "cp1252"}, CLI::ignore_case));
  import->add_flag("--ignore-extra", o->ignore_extra,
                   "skip (and list) columns the archive's table does not have");
  import->callback([o] { guarded([&] { run_import(*o);
});
}  // namespace qkp
);

auto* mdb = app.add_subcommand(
    "import-mdb",
    "Load the tables the archive knows from a desktop database (.mdb), through mdbtools");
mdb->add_option("FILE", o->mdb, "the .mdb file")->required()->check(CLI::ExistingFile);
mdb->add_option("--tables", o->tables, "only these tables, separated by commas");
add_import_options(mdb, *o);
mdb->callback([o] { guarded([&] { run_import_mdb(*o); }); });

auto* exp = app.add_subcommand("export-csv",
                               "Write the tables as <TABLE>.csv files, as import-csv reads them");
exp->add_option("DIR", o->dir, "folder to write into (created when missing)")->required();
exp->add_option("--table", o->table, "only this table");
exp->callback([o] {
  reported("export failed", [o] {
    auto a = qk::sync::open_archive_tools();
    for (const auto& [table, rows] : export_tables(*a, o->dir, o->table))
      std::printf("%s: %ld rows\n", table.c_str(), rows);
  });
});
}

}  // namespace qkp
