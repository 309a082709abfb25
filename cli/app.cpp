// The whole command tree, and the helpers every command group shares.
#include <set>

#include "commands.h"
#include "listing.h"
#include "qk/sync/network.h"
#include "numbers.h"
#include "qk/error.h"
#include "qk/host.h"
#include "session.h"

namespace qkp {

void print(const Options& o, const std::vector<std::string>& strings) {
  write_strings(stdout, o.format, strings);
  std::fflush(stdout);
}

qk::automation::Variant network_lines() {
  std::vector<std::string> problems;
  auto network = qk::sync::read_network(*qk::sync::open_archive_tools(), &problems);
  for (const auto& p : problems) fail(p);
  return qk::sync::configured_lines(network);
}

std::string to_8bit(const std::string& utf8, const char* what) {
  auto r = qk::utf8_to_cp1252(utf8);
  if (!r) throw CLI::ValidationError(what, "holds a character with no 8-bit form");
  return *r;
}

std::string counted(long n, const std::string& noun) {
  return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

void add_dept_option(CLI::App* cmd, int32_t& dept) {
  cmd->add_option("--dept,--counter", dept, "department (--counter is the same)")
      ->required()
      ->check(CLI::NonNegativeNumber);
}

std::string command_path(const CLI::App& app) {
  std::string path;
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    path += (path.empty() ? "" : " ") + at->get_name();
  }
  return path;
}

bool only_reads(const std::string& command) {
  // Commands that change nothing in the archive: they open it read-only, so a person who may only
  // read the installation can use them.
  static const std::set<std::string> kReaders = {"status",
                                                 "lines",
                                                 "pending",
                                                 "export-csv",
                                                 "lot",
                                                 "lots",
                                                 "keys",
                                                 "barcodes",
                                                 "vat",
                                                 "totals",
                                                 "ads",
                                                 "etexts",
                                                 "layout",
                                                 "layout preview",
                                                 "layout request",
                                                 "image",
                                                 "image preview",
                                                 "date",
                                                 "request",
                                                 "flags keys",
                                                 "flags barcodes",
                                                 "flags lots",
                                                 "flags ads",
                                                 "layouts",
                                                 "images",
                                                 "journal",
                                                 "runs"};
  return kReaders.count(command) > 0;
}

void add_commands(CLI::App& app, Options& options) {
  app.add_option("--home", options.home,
                 "installation folder (sets QK_HOME; without it and QK_HOME, the data folder: "
                 "$XDG_DATA_HOME/qk_protocol, else /var/lib/qk_protocol for root, else "
                 "~/.local/share/qk_protocol)");
  app.add_option("--format", options.format_name, "text, hex, raw or json")
      ->check(CLI::IsMember({"text", "hex", "raw", "json"}));
  add_date_command(app, options);
  add_settings_command(app, options);
  add_init_command(app, options);
  add_table_commands(app, options);
  add_keys_commands(app, options);
  add_flag_commands(app, options);
  add_image_commands(app, options);
  add_lot_commands(app, options);
  add_params_command(app, options);
  add_layout_command(app, options);
  add_sync_commands(app, options);
  add_journal_commands(app, options);
  add_serve_command(app, options);
  add_listing_command(app, options, "layouts", "TICKET", "ticket layouts");
  add_picture_command(*add_listing_command(app, options, "images", "IMMAGINI", "images"));
  read_numbers_as_decimal(app);
}

}  // namespace qkp
