// Files the component and the tool write are replaced whole: written to a temporary file beside
// the target, flushed to disk, renamed over it, and the folder flushed so the rename lasts.
#include "frame/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "frame/file_faults.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk {

namespace file_faults {
namespace {
thread_local bool g_armed = false;
thread_local Step g_step = Step::Create;
thread_local int g_error = EIO;
}  // namespace

void fail_next(Step step, int error) {
  g_armed = true;
  g_step = step;
  g_error = error;
}

bool injected(Step step) {
  if (!g_armed || g_step != step) return false;
  g_armed = false;
  errno = g_error;
  return true;
}
}  // namespace file_faults

namespace {

using file_faults::injected;
using file_faults::Step;

// Flushes the folder holding `path`: a rename is durable only once its folder is.
void flush_folder(const std::string& path) {
  auto slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;  // the file is already replaced; a folder we cannot open is not an error
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

void save_file_atomically(const std::string& path, const std::string& bytes) {
  save_file_atomically(path, bytes, 0644);
}

void save_file_atomically(const std::string& path, const std::string& bytes, unsigned mode) {
  std::string tmp = path + ".tmp-XXXXXX";
  int fd = -1;
  // Stops with error 75, naming the step and the file; the temporary file goes, the target stays.
  auto fail = [&](const char* what) {
    int err = errno;
    if (fd >= 0) {
      ::close(fd);
      ::unlink(tmp.c_str());
    }
    automation::raise(automation::kPathFileAccessError,
                      std::string("Path/File access error: cannot ") + what + " " + path + " (" +
                          std::strerror(err) + ")");
  };
  fd = injected(Step::Create) ? -1 : mkstemp(tmp.data());
  if (fd < 0) fail("create a temporary file beside");
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = injected(Step::Write) ? -1 : ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      fail("write");
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  if (injected(Step::Flush) || ::fsync(fd) != 0) fail("flush");
  // mkstemp made it 0600: opened up only once every byte is written, if at all.
  ::fchmod(fd, static_cast<mode_t>(mode));
  ::close(fd);
  if (injected(Step::Rename) || std::rename(tmp.c_str(), path.c_str()) != 0) {
    int err = errno;
    ::unlink(tmp.c_str());
    errno = err;
    fd = -1;
    fail("replace");
  }
  flush_folder(path);
}

}  // namespace qk
