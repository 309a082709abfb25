// Protocol strings on standard output in the chosen format:
//   text  one string per line; bytes outside printable ASCII as \xNN, the backslash doubled
//   hex   one line per string, two upper-case hex digits per byte
//   raw   the exact bytes, nothing added
//   json  an array of objects {"text": …, "hex": …} (text decoded from the 8-bit code page)
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace qkp {

enum class Format { Text, Hex, Raw, Json };

bool parse_format(const std::string& name, Format* out);

std::string as_text(const std::string& bytes);
std::string as_hex(const std::string& bytes);

// The inverses, for one line of text or hex output; nullopt when the line is not in that form.
std::optional<std::string> from_text(const std::string& line);
std::optional<std::string> from_hex(const std::string& line);

// Writes the strings in the format; json writes one whole array.
void write_strings(std::FILE* out, Format format, const std::vector<std::string>& strings);
// The bytes one string takes in a format (json: one array element with a trailing newline).
std::string encode_one(Format format, const std::string& bytes);

}  // namespace qkp
