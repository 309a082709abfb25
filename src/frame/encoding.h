// Inside the component every string is 8-bit (Windows code page 1252, as the scales read it);
// files and the archive hold UTF-8. These two functions are the only crossing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qk {

// Always succeeds: the five codes that 1252 leaves undefined map to the same code points.
std::string cp1252_to_utf8(std::string_view s);

// Fails (nullopt) on a character with no 8-bit form or on malformed UTF-8; *bad_offset then
// holds the byte offset of the offending sequence.
std::optional<std::string> utf8_to_cp1252(std::string_view s, std::size_t* bad_offset = nullptr);

// As above, raising a clear error that names the text's origin ("table X, column Y, row N").
std::string utf8_to_cp1252_or_raise(std::string_view s, const std::string& origin);

}  // namespace qk
