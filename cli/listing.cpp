#include "listing.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "qk/sync/archive_pictures.h"
#include "qk/sync/network.h"
#include "qk/archive_schema.h"
#include "qk/host.h"
#include "session.h"

namespace qkp {

void list_rows(const Options& g, const std::string& table, int32_t dept) {
  const qk::archive::Table& t = *qk::archive::find_table(table);
  auto columns = qk::archive::written_columns(t);
  auto a = qk::sync::open_archive_tools();
  auto rs = a->select_rows(t, {{std::string(t.department), dept}});
  std::vector<std::vector<std::string>> rows;
  nlohmann::json out = nlohmann::json::array();
  for (; !rs->Eof(); rs->MoveNext()) {
    nlohmann::json object = nlohmann::json::object();
    std::vector<std::string> row;
    for (const auto& c : columns) {
      qk::automation::Variant v = rs->Fields(c);
      std::string text = v.is_null() ? "" : qk::cp1252_to_utf8(v.to_text());
      // A file's bytes are shown as their count.
      if (qk::archive::find_column(t, c)->form == qk::archive::TextForm::FileBytes) {
        auto bytes = qk::sync::picture_bytes(text);
        v = static_cast<long long>(bytes ? bytes->size() : 0);
        text = text.empty() ? "none" : std::to_string(bytes ? bytes->size() : 0) + " bytes";
      }
      row.push_back(text);
      if (v.is_null())
        object[c] = nullptr;
      else if (double d = v.is_numeric_type() ? v.to_double() : 0;
               v.is_numeric_type() && d == std::floor(d) && std::fabs(d) < 1e15)
        object[c] = static_cast<int64_t>(d);
      else if (v.is_numeric_type())
        object[c] = d;
      else
        object[c] = text;
    }
    rows.push_back(std::move(row));
    out.push_back(std::move(object));
  }
  if (rows.empty()) return fail("department " + std::to_string(dept) + " has no rows in " + table);
  if (g.format == Format::Json) {
    std::printf("%s\n", out.dump(1).c_str());
    return;
  }
  std::vector<std::size_t> width;
  for (const auto& c : columns) width.push_back(c.size());
  for (const auto& r : rows)
    for (std::size_t i = 0; i < r.size(); ++i) width[i] = std::max(width[i], r[i].size());
  auto print_row = [&](const std::vector<std::string>& r) {
    std::string line;
    for (std::size_t i = 0; i < r.size(); ++i)
      line += r[i] + (i + 1 < r.size() ? std::string(width[i] - r[i].size() + 2, ' ') : "");
    std::printf("%s\n", line.c_str());
  };
  print_row(columns);
  for (const auto& r : rows) print_row(r);
}

CLI::App* add_listing_command(CLI::App& app, Options& g, const std::string& name,
                              const std::string& table, const std::string& what) {
  auto dept = std::make_shared<int32_t>(0);
  auto* cmd = app.add_subcommand(name, "The " + what + " of a department (rows of " + table + ")");
  add_dept_option(cmd, *dept);
  // A subcommand (images add) takes its own --dept: the listing's is asked for only when it runs.
  auto* option = cmd->get_option("--dept");
  option->required(false);
  cmd->callback([&g, dept, table, cmd, option] {
    if (!cmd->get_subcommands().empty()) return;
    if (option->count() == 0) throw CLI::RequiredError("--dept");
    list_rows(g, table, *dept);
  });
  return cmd;
}

}  // namespace qkp
