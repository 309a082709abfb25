#include <algorithm>
#include <map>
#include <mutex>

#include "qk/error.h"
#include "qk/host.h"

namespace qk::automation {

namespace {

std::string fold(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

// The registry is process-wide (like the system's class registration); creation is per call.
std::mutex& registry_mutex() {
  static std::mutex m;
  return m;
}
std::map<std::string, Creator>& registry() {
  static std::map<std::string, Creator> r;
  return r;
}

}  // namespace

void register_component(const std::string& identifier, Creator creator) {
  std::lock_guard lock(registry_mutex());
  registry()[fold(identifier)] = std::move(creator);
}

void unregister_component(const std::string& identifier) {
  std::lock_guard lock(registry_mutex());
  registry().erase(fold(identifier));
}

ObjectPtr create_object(const std::string& identifier) {
  Creator creator;
  {
    std::lock_guard lock(registry_mutex());
    auto it = registry().find(fold(identifier));
    if (it != registry().end()) creator = it->second;
  }
  if (!creator)
    raise(kCannotCreateObject,
          standard_description(kCannotCreateObject) + ": nothing is registered as \"" + identifier +
              "\" (a host registers the companions before creating classes, see qk/host.h)");
  ObjectPtr p = creator();
  if (!p) raise(kCannotCreateObject);
  return p;
}

}  // namespace qk::automation
