#include "output.h"

#include <nlohmann/json.hpp>

#include "qk/host.h"

namespace qkp {

bool parse_format(const std::string& name, Format* out) {
  if (name == "text")
    *out = Format::Text;
  else if (name == "hex")
    *out = Format::Hex;
  else if (name == "raw")
    *out = Format::Raw;
  else if (name == "json")
    *out = Format::Json;
  else
    return false;
  return true;
}

std::string as_text(const std::string& bytes) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  out.reserve(bytes.size());
  for (unsigned char c : bytes) {
    if (c == '\\')
      out += "\\\\";
    else if (c >= 0x20 && c < 0x7F)
      out += static_cast<char>(c);
    else {
      out += "\\x";
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

namespace {
int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}
}  // namespace

std::optional<std::string> from_text(const std::string& line) {
  std::string out;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      out += line[i];
      continue;
    }
    if (i + 1 < line.size() && line[i + 1] == '\\') {
      out += '\\';
      ++i;
      continue;
    }
    if (i + 3 >= line.size() + 0 || line[i + 1] != 'x') return std::nullopt;
    int hi = hex_digit(line[i + 2]), lo = hex_digit(line[i + 3]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out += static_cast<char>(hi * 16 + lo);
    i += 3;
  }
  return out;
}

std::optional<std::string> from_hex(const std::string& line) {
  if (line.size() % 2) return std::nullopt;
  std::string out;
  for (std::size_t i = 0; i < line.size(); i += 2) {
    int hi = hex_digit(line[i]), lo = hex_digit(line[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out += static_cast<char>(hi * 16 + lo);
  }
  return out;
}

std::string as_hex(const std::string& bytes) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    out += hex[c >> 4];
    out += hex[c & 15];
  }
  return out;
}

static nlohmann::json json_item(const std::string& bytes) {
  return {{"text", qk::cp1252_to_utf8(bytes)}, {"hex", as_hex(bytes)}};
}

std::string encode_one(Format format, const std::string& bytes) {
  switch (format) {
    case Format::Text:
      return as_text(bytes) + "\n";
    case Format::Hex:
      return as_hex(bytes) + "\n";
    case Format::Raw:
      return bytes;
    case Format::Json:
      return json_item(bytes).dump() + "\n";
  }
  return bytes;
}

void write_strings(std::FILE* out, Format format, const std::vector<std::string>& strings) {
  if (format == Format::Json) {
    nlohmann::json array = nlohmann::json::array();
    for (const auto& s : strings) array.push_back(json_item(s));
    std::string text = array.dump(1) + "\n";
    std::fwrite(text.data(), 1, text.size(), out);
    return;
  }
  for (const auto& s : strings) {
    std::string e = encode_one(format, s);
    std::fwrite(e.data(), 1, e.size(), out);
  }
}

}  // namespace qkp
