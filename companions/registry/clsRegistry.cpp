#include "registry/clsRegistry.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "qk/error.h"
#include "qk/host.h"
#include "qk/registry_helper.h"

namespace qk::companions {

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// UTF-16LE (with BOM) to the component's 8-bit text; other input is taken as 8-bit already.
std::string decode(const std::string& bytes, const std::string& origin) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    std::string utf8;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
      char32_t u =
          static_cast<unsigned char>(bytes[i]) | (static_cast<unsigned char>(bytes[i + 1]) << 8);
      if (u >= 0xD800 && u <= 0xDBFF && i + 3 < bytes.size()) {
        char32_t lo = static_cast<unsigned char>(bytes[i + 2]) |
                      (static_cast<unsigned char>(bytes[i + 3]) << 8);
        u = 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
        i += 2;
      }
      if (u < 0x80)
        utf8 += static_cast<char>(u);
      else if (u < 0x800) {
        utf8 += static_cast<char>(0xC0 | (u >> 6));
        utf8 += static_cast<char>(0x80 | (u & 0x3F));
      } else if (u < 0x10000) {
        utf8 += static_cast<char>(0xE0 | (u >> 12));
        utf8 += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
        utf8 += static_cast<char>(0x80 | (u & 0x3F));
      } else {
        utf8 += static_cast<char>(0xF0 | (u >> 18));
        utf8 += static_cast<char>(0x80 | ((u >> 12) & 0x3F));
        utf8 += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
        utf8 += static_cast<char>(0x80 | (u & 0x3F));
      }
    }
    return utf8_to_cp1252_or_raise(utf8, origin);
  }
  if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0)
    return utf8_to_cp1252_or_raise(bytes.substr(3), origin);
  return bytes;
}

// Reads a quoted string starting at s[i] == '"'; returns the text and moves i past the quote.
bool read_quoted(const std::string& s, std::size_t& i, std::string& out) {
  if (i >= s.size() || s[i] != '"') return false;
  ++i;
  out.clear();
  while (i < s.size()) {
    char c = s[i++];
    if (c == '\\' && i < s.size())
      out += s[i++];
    else if (c == '"')
      return true;
    else
      out += c;
  }
  return false;
}

// "hex:01,ff,…" or "hex(N):…" as an export writes it, continuation lines joined.
bool hex_bytes(const std::string& v) {
  std::size_t i = 3;
  if (i < v.size() && v[i] == '(') {
    auto close = v.find(')', i);
    if (close == std::string::npos || close == i + 1 ||
        v.find_first_not_of("0123456789abcdefABCDEF", i + 1) != close)
      return false;
    i = close + 1;
  }
  if (i >= v.size() || v[i] != ':') return false;
  std::string bytes;
  for (char c : v.substr(i + 1))
    if (c != '\\' && c != ' ' && c != '\t') bytes += c;
  if (bytes.empty()) return true;
  for (std::size_t at = 0;; at += 3) {
    if (at + 2 > bytes.size() || !std::isxdigit(static_cast<unsigned char>(bytes[at])) ||
        !std::isxdigit(static_cast<unsigned char>(bytes[at + 1])))
      return false;
    if (at + 2 == bytes.size()) return true;
    if (bytes[at + 2] != ',') return false;
  }
}

std::string strip_hive(const std::string& key, bool* current_user) {
  auto slash = key.find('\\');
  std::string hive = lower(key.substr(0, slash));
  *current_user = hive == "hkey_current_user" || hive == "hkcu";
  return slash == std::string::npos ? "" : key.substr(slash + 1);
}

}  // namespace

void RegExport::parse(const std::string& bytes, const std::string& origin) {
  std::istringstream in(decode(bytes, origin));
  std::string line, current, pending;
  bool served = false;
  int number = 0;
  bool header_seen = false;
  while (std::getline(in, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!pending.empty() ||
        (!line.empty() && line.back() == '\\' && line.find('=') != std::string::npos)) {
      // Continued hex data: joined and then ignored (only text and dword values are settings).
      pending += line;
      if (!line.empty() && line.back() == '\\') continue;
      line = pending;
      pending.clear();
    }
    std::string t = line;
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) t.pop_back();
    while (!t.empty() && (t.front() == ' ' || t.front() == '\t')) t.erase(0, 1);
    if (t.empty() || t[0] == ';') continue;
    if (!header_seen) {
      if (t != "REGEDIT4" && t != "Windows Registry Editor Version 5.00")
        automation::raise(automation::kTypeMismatch,
                          origin + " line " + std::to_string(number) +
                              ": not a registry export (no REGEDIT4 or version 5.00 header)");
      header_seen = true;
      continue;
    }
    if (t[0] == '[') {
      if (t.back() != ']')
        automation::raise(automation::kTypeMismatch,
                          origin + " line " + std::to_string(number) + ": unclosed key name");
      std::string key = t.substr(1, t.size() - 2);
      served = false;
      if (!key.empty() && key[0] == '-') continue;  // a deleted key is not a setting
      current = strip_hive(key, &served);
      // Every ancestor exists as a key too, so that the walk from the base path finds it.
      std::string path;
      std::size_t start = 0;
      while (true) {
        auto slash = current.find('\\', start);
        path = current.substr(0, slash);
        if (served && !path.empty()) {
          names_.emplace(lower(path), path);
          keys_[lower(path)];
        }
        if (slash == std::string::npos) break;
        start = slash + 1;
      }
      continue;
    }
    if (!served) continue;
    std::size_t i = 0;
    std::string name, value;
    if (t[0] == '@') {
      name = "";
      i = 1;
    } else if (!read_quoted(t, i, name)) {
      automation::raise(automation::kTypeMismatch,
                        origin + " line " + std::to_string(number) + ": malformed value name");
    }
    if (i >= t.size() || t[i] != '=')
      automation::raise(automation::kTypeMismatch,
                        origin + " line " + std::to_string(number) + ": \"=\" expected");
    ++i;
    if (i < t.size() && t[i] == '"') {
      if (!read_quoted(t, i, value))
        automation::raise(automation::kTypeMismatch,
                          origin + " line " + std::to_string(number) + ": unclosed string");
    } else if (t.compare(i, 6, "dword:") == 0) {
      std::string digits = t.substr(i + 6);
      if (digits.empty() || digits.size() > 8 ||
          digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        automation::raise(automation::kTypeMismatch,
                          origin + " line " + std::to_string(number) + ": the dword value \"" +
                              digits + "\" is not a number of 1 to 8 hexadecimal digits");
      value = std::to_string(std::stoul(digits, nullptr, 16));
    } else if (t.compare(i, 3, "hex") == 0) {
      if (!hex_bytes(t.substr(i)))
        automation::raise(automation::kTypeMismatch,
                          origin + " line " + std::to_string(number) +
                              ": the hex value is not a list of two-digit bytes separated by "
                              "commas (\"hex:01,ff\" or \"hex(2):41,00\")");
      continue;  // binary data is not a setting
    } else if (t.compare(i, 1, "-") == 0) {
      continue;  // a deleted value is not a setting
    } else {
      automation::raise(automation::kTypeMismatch,
                        origin + " line " + std::to_string(number) +
                            ": a value must be a quoted text, dword:, hex: or - (deleted)");
    }
    Key& k = keys_[lower(current)];
    if (!k.values.count(name)) k.value_order.push_back(name);
    k.values[name] = value;
  }
}

std::vector<std::string> RegExport::subkeys(const std::string& path) const {
  std::vector<std::string> out;
  std::string prefix = lower(path) + "\\";
  for (const auto& [k, written] : names_) {
    if (k.compare(0, prefix.size(), prefix) != 0) continue;
    std::string rest = written.substr(prefix.size());
    if (rest.find('\\') == std::string::npos) out.push_back(rest);
  }
  return out;
}

std::vector<RegistryHelper::KeyValue> RegExport::values(const std::string& path) const {
  std::vector<RegistryHelper::KeyValue> out;
  auto it = keys_.find(lower(path));
  if (it == keys_.end()) return out;
  for (const auto& name : it->second.value_order) out.push_back({name, it->second.values.at(name)});
  return out;
}

namespace {
std::vector<std::string> g_exports;  // named by the host; empty: the folder's
}  // namespace

std::vector<std::string> exports_to_read() {
  if (!g_exports.empty()) return g_exports;
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(component_folder(), ec))
    if (e.path().extension() == ".reg") files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

clsRegistry::clsRegistry() {
  for (const auto& f : exports_to_read()) {
    std::ifstream in(f, std::ios::binary);
    if (!in) automation::raise(automation::kFileNotFound, "cannot read the registry export " + f);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    export_.parse(bytes, f);
  }
}

std::vector<std::string> clsRegistry::EnumRegistryKeys(unsigned long hive,
                                                       const std::string& path) {
  if (hive != kHkeyCurrentUser) return {};
  return export_.subkeys(path);
}

std::vector<RegistryHelper::KeyValue> clsRegistry::EnumKeyValues(unsigned long hive,
                                                                 const std::string& path) {
  if (hive != kHkeyCurrentUser) return {};
  return export_.values(path);
}

void register_registry_helper() {
  automation::register_component(kRegistryHelperId, [] { return std::make_shared<clsRegistry>(); });
}

}  // namespace qk::companions

namespace qk {
void register_registry_helper() {
  companions::register_registry_helper();
}
void use_registry_exports(std::vector<std::string> files) {
  companions::g_exports = std::move(files);
}
std::vector<std::string> registry_exports() {
  return companions::exports_to_read();
}
void check_registry_exports() {
  companions::clsRegistry check;
}
}  // namespace qk
