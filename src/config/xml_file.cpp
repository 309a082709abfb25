#include "config/xml_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "qk/error.h"
#include "qk/host.h"

namespace qk::config {

bool load_document(pugi::xml_document& doc, const std::string& path) {
  pugi::xml_parse_result r = doc.load_file(path.c_str(), pugi::parse_default, pugi::encoding_auto);
  if (!r) doc.reset();
  return static_cast<bool>(r);
}

}  // namespace qk::config

namespace qk {

void save_file_atomically(const std::string& path, const std::string& bytes) {
  auto fail = [&](const char* what) {
    int err = errno;
    automation::raise(automation::kPathFileAccessError,
                      std::string("Path/File access error: cannot ") + what + " " + path + " (" +
                          std::strerror(err) + ")");
  };
  std::string tmp = path + ".tmp-XXXXXX";
  int fd = mkstemp(tmp.data());
  if (fd < 0) fail("create a temporary file beside");
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      ::close(fd);
      ::unlink(tmp.c_str());
      errno = err;
      fail("write");
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0) {
    int err = errno;
    ::close(fd);
    ::unlink(tmp.c_str());
    errno = err;
    fail("flush");
  }
  ::fchmod(fd, 0644);
  ::close(fd);
  if (std::rename(tmp.c_str(), path.c_str()) != 0) {
    int err = errno;
    ::unlink(tmp.c_str());
    errno = err;
    fail("replace");
  }
}

}  // namespace qk

namespace qk::config {

void save_document_atomically(const pugi::xml_document& doc, const std::string& path) {
  std::ostringstream out;
  doc.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
  save_file_atomically(path, out.str());
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
