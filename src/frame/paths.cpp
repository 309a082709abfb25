#include "frame/paths.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>

#include "config/clsRegistry2Xml.h"
#include "frame/file_cache.h"
#include "frame/globals.h"
#include "qk/host.h"

namespace qk {

namespace {
std::mutex g_folder_mutex;
std::string g_folder;  // set by the host's start(); wins over $QK_HOME
}  // namespace

void set_component_folder(const std::string& folder) {
  std::error_code ec;
  std::string f =
      folder.empty() ? "" : std::filesystem::absolute(folder, ec).lexically_normal().string();
  while (f.size() > 1 && f.back() == '/') f.pop_back();
  std::lock_guard lock(g_folder_mutex);
  g_folder = f;
}

std::string component_folder() {
  {
    std::lock_guard lock(g_folder_mutex);
    if (!g_folder.empty()) return g_folder;
  }
  if (const char* home = std::getenv("QK_HOME"); home && *home) {
    // An absolute folder is normalised once per value: every object the component creates asks.
    thread_local std::string given, normal;
    if (home[0] == '/' && given == home) return normal;
    // Absolute, so that relative settings resolve against it and not against each other.
    std::error_code ec;
    std::string h = std::filesystem::absolute(home, ec).lexically_normal().string();
    if (ec) h = home;
    while (h.size() > 1 && h.back() == '/') h.pop_back();
    if (home[0] == '/') given = home, normal = h;
    return h;
  }
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&component_folder), &info) && info.dli_fname) {
    std::error_code ec;
    auto p = std::filesystem::weakly_canonical(info.dli_fname, ec);
    return (ec ? std::filesystem::path(info.dli_fname) : p).parent_path().string();
  }
  return std::filesystem::current_path().string();
}

std::string per_user_setting(const std::string& section, const std::string& key) {
  std::string base;
  if (const char* x = std::getenv("XDG_CONFIG_HOME"); x && *x)
    base = x;
  else if (const char* h = std::getenv("HOME"); h && *h)
    base = std::string(h) + "/.config";
  else
    return "";
  auto bytes = small_file_bytes(base + "/varlen-system/settings.ini");
  if (!bytes) return "";
  std::istringstream in(*bytes);
  std::string line, current;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      current = line.substr(1, line.size() - 2);
      continue;
    }
    auto eq = line.find('=');
    if (eq == std::string::npos || current != section || line.substr(0, eq) != key) continue;
    auto v = utf8_to_cp1252(line.substr(eq + 1));
    return v ? *v : "";
  }
  return "";
}

std::string path_in(const std::string& base, const std::string& path) {
  if (path.empty() || path.front() == kPathSeparator) return path;
  if (path == ".") return base;
  return with_trailing_separator(base) + path;
}

std::string installation_folder() {
  clsRegistry2Xml store;
  std::string folder = path_in(
      component_folder(), store.GetSetting(kApplicationName, "Appl", "Path", component_folder()));
  while (folder.size() > 1 && folder.back() == kPathSeparator) folder.pop_back();
  return folder;
}

std::string with_trailing_separator(std::string folder) {
  if (folder.empty() || folder.back() != kPathSeparator) folder += kPathSeparator;
  return folder;
}

}  // namespace qk
