#include "config/xml_file.h"

#include <mutex>
#include <sstream>
#include <unordered_map>

#include "frame/atomic_file.h"
#include "frame/file_cache.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk::config {

namespace {
// A missing or malformed file leaves the document empty.
bool parse(pugi::xml_document& doc, const std::shared_ptr<const std::string>& bytes) {
  bool ok = bytes &&
            doc.load_buffer(bytes->data(), bytes->size(), pugi::parse_default, pugi::encoding_auto);
  if (!ok) doc.reset();
  return ok;
}
}  // namespace

bool load_document(pugi::xml_document& doc, const std::string& path) {
  return parse(doc, small_file_bytes(path));
}

std::shared_ptr<const pugi::xml_document> shared_document(const std::string& path) {
  static std::mutex mutex;
  static std::unordered_map<std::string, std::pair<std::shared_ptr<const std::string>,
                                                   std::shared_ptr<const pugi::xml_document>>>
      parsed;
  auto bytes = small_file_bytes(path);
  {
    std::lock_guard lock(mutex);
    auto it = parsed.find(path);
    // The same bytes object: the file has not changed since it was parsed.
    if (bytes && it != parsed.end() && it->second.first == bytes) return it->second.second;
  }
  auto doc = std::make_shared<pugi::xml_document>();
  parse(*doc, bytes);
  std::lock_guard lock(mutex);
  if (bytes)
    parsed[path] = {bytes, doc};
  else
    parsed.erase(path);
  return doc;
}

}  // namespace qk::config

namespace qk::config {

void save_document_atomically(const pugi::xml_document& doc, const std::string& path,
                              unsigned mode) {
  std::ostringstream out;
  doc.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
  save_file_atomically(path, out.str(), mode);
}

std::string from_xml(const char* utf8) {
  auto r = utf8_to_cp1252(utf8 ? utf8 : "");
  if (!r)
    automation::raise(automation::kTypeMismatch,
                      "an XML text holds a character with no 8-bit form: " + std::string(utf8));
  return *r;
}

std::string to_xml(const std::string& text) {
  return cp1252_to_utf8(text);
}

pugi::xpath_node select_single(const pugi::xml_node& context, const std::string& query) {
  if (!context) return {};
  return context.select_node(to_xml(query).c_str());
}

}  // namespace qk::config
