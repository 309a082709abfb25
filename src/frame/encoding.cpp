#include <cstdint>
#include <cstring>

#include "qk/error.h"
#include "qk/host.h"

namespace qk {

namespace {

// Code points of 0x80..0x9F; the undefined positions hold their own value.
constexpr char32_t kHigh[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void append_utf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

int to_cp1252(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<int>(cp);
  for (int i = 0; i < 32; ++i)
    if (kHigh[i] == cp) return 0x80 + i;
  return -1;
}

// The 8-bit code of the UTF-8 character at s[i] (its continuation bytes in *extra), or -1 when
// it is malformed or has none.
int next_cp1252(std::string_view s, std::size_t i, std::size_t* extra) {
  unsigned char c = static_cast<unsigned char>(s[i]);
  *extra = 0;
  if (c < 0x80) return c;
  int more = (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : -1;
  if (more < 0 || i + static_cast<std::size_t>(more) >= s.size()) return -1;
  char32_t cp = more == 1 ? c & 0x1F : more == 2 ? c & 0x0F : c & 0x07;
  for (int k = 1; k <= more; ++k) {
    unsigned char d = static_cast<unsigned char>(s[i + static_cast<std::size_t>(k)]);
    if ((d & 0xC0) != 0x80) return -1;
    cp = (cp << 6) | (d & 0x3F);
  }
  *extra = static_cast<std::size_t>(more);
  return to_cp1252(cp);
}

bool is_ascii(std::string_view s) {
  // Eight bytes at a time: archive texts are long and nearly always plain ASCII.
  std::size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    uint64_t word;
    std::memcpy(&word, s.data() + i, 8);
    if (word & 0x8080808080808080ULL) return false;
  }
  for (; i < s.size(); ++i)
    if (static_cast<unsigned char>(s[i]) >= 0x80) return false;
  return true;
}

}  // namespace

std::string cp1252_to_utf8(std::string_view s) {
  std::string out;
  out.reserve(s.size() + s.size() / 8);
  for (unsigned char c : s) {
    if (c < 0x80)
      out += static_cast<char>(c);
    else
      append_utf8(out, c < 0xA0 ? kHigh[c - 0x80] : c);
  }
  return out;
}

bool has_8bit_form(std::string_view utf8) {
  if (is_ascii(utf8)) return true;
  std::size_t i = 0;
  while (i < utf8.size()) {
    std::size_t extra = 0;
    int b = next_cp1252(utf8, i, &extra);
    if (b < 0) return false;
    i += extra + 1;
  }
  return true;
}

std::optional<std::string> utf8_to_cp1252(std::string_view s, std::size_t* bad_offset) {
  // Most archive text is plain ASCII, the same bytes in both forms.
  if (is_ascii(s)) return std::string(s);
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    std::size_t extra = 0;
    int b = next_cp1252(s, i, &extra);
    if (b < 0) {
      if (bad_offset) *bad_offset = i;
      return std::nullopt;
    }
    out += static_cast<char>(b);
    i += extra + 1;
  }
  return out;
}

std::string utf8_to_cp1252_or_raise(std::string_view s, const std::string& origin) {
  std::size_t bad = 0;
  auto r = utf8_to_cp1252(s, &bad);
  if (!r) {
    // Name the character by its code point: its UTF-8 bytes cannot be shown in 8 bits.
    std::string code;
    std::size_t end = bad + 1;
    while (end < s.size() && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) ++end;
    for (std::size_t k = bad; k < end; ++k) {
      static const char* hex = "0123456789ABCDEF";
      unsigned char c = static_cast<unsigned char>(s[k]);
      code += std::string(k == bad ? "" : " ") + hex[c >> 4] + hex[c & 15];
    }
    automation::raise(automation::kTypeMismatch,
                      "the text of " + origin + " holds a character with no 8-bit form (UTF-8 " +
                          code + " at byte " + std::to_string(bad) + ")");
  }
  return *r;
}

}  // namespace qk
