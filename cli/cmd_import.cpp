#include <csv.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "automation/error.h"
#include "commands.h"
#include "db_access/clsDbAccess.h"
#include "frame/encoding.h"
#include "session.h"

namespace qkp {

namespace {

struct CsvTable {
  std::vector<std::vector<std::string>> records;
  std::vector<std::string> current;
};

void on_field(void* s, size_t n, void* data) {
  static_cast<CsvTable*>(data)->current.emplace_back(static_cast<const char*>(s), n);
}
void on_record(int, void* data) {
  auto* t = static_cast<CsvTable*>(data);
  t->records.push_back(std::move(t->current));
  t->current.clear();
}

CsvTable read_csv(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.erase(0, 3);
  csv_parser p;
  csv_init(&p, CSV_STRICT | CSV_STRICT_FINI | CSV_APPEND_NULL | CSV_EMPTY_IS_NULL);
  CsvTable t;
  if (csv_parse(&p, bytes.data(), bytes.size(), on_field, on_record, &t) != bytes.size() ||
      csv_fini(&p, on_field, on_record, &t) != 0) {
    std::string err = csv_strerror(csv_error(&p));
    csv_free(&p);
    throw std::runtime_error(path + ": malformed CSV after record " +
                             std::to_string(t.records.size()) + " (line " +
                             std::to_string(t.records.size() + 1) + "): " + err);
  }
  csv_free(&p);
  return t;
}

// Column types of a table, to refuse text in a numeric column before anything is written.
std::map<std::string, std::string> column_types(qk::companions::Archive& a,
                                                const std::string& table) {
  std::map<std::string, std::string> types;
  auto rs = a.query("select name, type from pragma_table_info(?1)", {table});
  for (; !rs->Eof(); rs->MoveNext())
    types[rs->Fields("name").to_string()] = rs->Fields("type").to_string();
  return types;
}

void run_import(const std::string& dir) {
  qk::companions::clsDbAccess db;
  db.Initialize(qk::automation::Variant("Archivi.mdb"));
  auto& a = db.archive();
  std::vector<std::filesystem::path> files;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    if (e.path().extension() == ".csv") files.push_back(e.path());
  std::sort(files.begin(), files.end());
  if (files.empty()) throw std::runtime_error("no .csv files in " + dir);
  qk::companions::Archive::Transaction t(a);
  std::vector<std::pair<std::string, std::size_t>> counts;
  for (const auto& f : files) {
    std::string table = f.stem().string();
    auto types = column_types(a, table);
    if (types.empty()) throw std::runtime_error(f.string() + ": the archive has no table " + table);
    CsvTable csv = read_csv(f.string());
    if (csv.records.empty()) throw std::runtime_error(f.string() + ": no header row");
    const auto& header = csv.records[0];
    std::string cols, marks;
    for (std::size_t c = 0; c < header.size(); ++c) {
      if (!types.count(header[c]))
        throw std::runtime_error(f.string() + " line 1: " + table + " has no column \"" +
                                 header[c] + "\"");
      cols += (c ? ", " : "") + header[c];
      marks += (c ? ", ?" : "?") + std::to_string(c + 1);
    }
    std::string sql = "insert into " + table + " (" + cols + ") values (" + marks + ")";
    for (std::size_t r = 1; r < csv.records.size(); ++r) {
      const auto& rec = csv.records[r];
      std::string where = f.string() + " line " + std::to_string(r + 1);
      if (rec.size() != header.size())
        throw std::runtime_error(where + ": " + std::to_string(rec.size()) +
                                 " fields, the header has " + std::to_string(header.size()));
      std::vector<qk::automation::Variant> values;
      for (std::size_t c = 0; c < rec.size(); ++c) {
        const std::string& v = rec[c];
        const std::string& type = types[header[c]];
        if (type == "INTEGER" || type == "REAL") {
          if (v.empty()) {
            values.push_back(qk::automation::Variant::null());
            continue;
          }
          if (!qk::automation::looks_numeric(v))
            throw std::runtime_error(where + ", column " + header[c] + ": \"" + v +
                                     "\" is not a number");
          double d = qk::automation::parse_number(v);
          if (type == "INTEGER" && d != std::floor(d))
            throw std::runtime_error(where + ", column " + header[c] + ": \"" + v +
                                     "\" is not a whole number");
          values.emplace_back(d);
          continue;
        }
        auto text = qk::utf8_to_cp1252(v);
        if (!text)
          throw std::runtime_error(where + ", column " + header[c] +
                                   ": a character with no 8-bit form");
        values.emplace_back(*text);
      }
      try {
        a.execute(sql, values);
      } catch (const qk::automation::Error& e) {
        throw std::runtime_error(where + ": " + e.description());
      }
    }
    counts.emplace_back(table, csv.records.size() - 1);
  }
  t.commit();
  for (const auto& [table, n] : counts) std::printf("%s: %zu rows\n", table.c_str(), n);
}

}  // namespace

void add_import_command(CLI::App& app, Options&) {
  auto dir = std::make_shared<std::string>();
  auto* cmd = app.add_subcommand(
      "import-csv", "Load <TABLE>.csv files (header row = column names) in one transaction");
  cmd->add_option("DIR", *dir, "folder of CSV files")->required()->check(CLI::ExistingDirectory);
  cmd->callback([dir] {
    try {
      run_import(*dir);
    } catch (const qk::automation::Error& e) {
      fail("import failed, archive unchanged: " + qk::cp1252_to_utf8(e.description()));
    } catch (const std::exception& e) {
      fail(std::string("import failed, archive unchanged: ") + e.what());
    }
  });
}

}  // namespace qkp
