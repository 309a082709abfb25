// What a department holds of one kind of record, as rows of its table: `layouts`, `images`,
// `ads --list`, `etexts --list`.
#pragma once

#include <string>

#include "commands.h"

namespace qkp {

// Prints the rows of `table` whose department column is `dept`, every column but the row
// version: in text a header line and one aligned line per row, in json an array of objects
// (numbers as numbers, Null as null). A department without rows fails with a message.
void list_rows(const Options& g, const std::string& table, int32_t dept);

// Adds a command listing one table's rows of a department; returns it.
CLI::App* add_listing_command(CLI::App& app, Options& g, const std::string& name,
                              const std::string& table, const std::string& what);

}  // namespace qkp
