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

std::optional<std::string> utf8_to_cp1252(std::string_view s, std::size_t* bad_offset) {
  // Most archive text is plain ASCII, the same bytes in both forms.
  bool ascii = true;
  for (unsigned char c : s) ascii = ascii && c < 0x80;
  if (ascii) return std::string(s);
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    int extra = (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : -1;
    char32_t cp = extra == 1 ? c & 0x1F : extra == 2 ? c & 0x0F : c & 0x07;
    bool ok = extra > 0;
    for (int k = 1; ok && k <= extra; ++k) {
      if (i + k >= s.size()) {
        ok = false;
        break;
      }
      unsigned char d = static_cast<unsigned char>(s[i + k]);
      if ((d & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (d & 0x3F);
    }
    int b = ok ? to_cp1252(cp) : -1;
    if (b < 0) {
      if (bad_offset) *bad_offset = i;
      return std::nullopt;
    }
    out += static_cast<char>(b);
    i += static_cast<std::size_t>(extra) + 1;
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
