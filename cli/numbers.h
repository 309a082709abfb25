// Whole numbers on the command line, read as a back office writes them.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace qkp {

// The decimal number `typed` spells, in the form the option parser converts without guessing a
// base: blanks around it are dropped, a '+' sign too, leading zeros are read as decimal ("074" is
// 74, "-007" is -7). Nullopt for anything else (a base prefix such as 0x, an exponent, a
// fraction, a number outside 32 bits).
std::optional<std::string> decimal_number(const std::string& typed);

// Makes every whole-number option of `app` and of its subcommands read its value with
// decimal_number; what it refuses is a usage error naming the option. Call after every option
// was added.
void read_numbers_as_decimal(CLI::App& app);

}  // namespace qkp
