// Each command group adds its subcommands to the application.
#pragma once

#include <CLI/CLI.hpp>

#include "output.h"
#include "qk/families.h"
#include "qk/variant.h"

namespace qkp {

struct Options {
  std::string home;
  std::string format_name = "text";
  Format format = Format::Text;
};

// Prints strings in the global format.
void print(const Options& o, const std::vector<std::string>& strings);

// The parsed command's words ("layout receive"), and whether that command only reads the
// archive.
std::string command_path(const CLI::App& app);
bool only_reads(const std::string& command);

// Every command of the tool, with the global options; whole numbers are read as decimal.
void add_commands(CLI::App& app, Options& o);

void add_date_command(CLI::App& app, Options& o);
void add_settings_command(CLI::App& app, Options& o);
void add_init_command(CLI::App& app, Options& o);
void add_table_commands(CLI::App& app, Options& o);
void add_keys_commands(CLI::App& app, Options& o);
void add_flag_commands(CLI::App& app, Options& o);
void add_image_commands(CLI::App& app, Options& o);
// images add: a bitmap stored in the archive, under the `images` listing.
void add_picture_command(CLI::App& images);
void add_lot_commands(CLI::App& app, Options& o);
void add_params_command(CLI::App& app, Options& o);
void add_layout_command(CLI::App& app, Options& o);
void add_sync_commands(CLI::App& app, Options& o);
// journal (and journal prune) and runs: the delivery journal.
void add_journal_commands(CLI::App& app, Options& o);
void add_serve_command(CLI::App& app, Options& o);

// The network's configured-lines array (problems reading it are reported as failures).
qk::automation::Variant network_lines();

// A command-line text in the component's 8-bit form; a usage error naming `what` when it holds a
// character with no such form.
std::string to_8bit(const std::string& utf8, const char* what);

// The forms a command building one record of kind K offers as its --family choices, from the
// families' catalogue ("3000", "3000TOP", …).
template <qk::Kind K>
std::vector<std::string> form_choices() {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < qk::kFormsOf<K>.second; ++i)
    names.emplace_back(qk::form_name(qk::kFormsOf<K>.first[i]));
  return names;
}

// "1 row", "2 rows".
std::string counted(long n, const std::string& noun);

// The required department option: --dept, with --counter (the component's own word) as an alias.
void add_dept_option(CLI::App* cmd, int32_t& dept);

}  // namespace qkp
