#include "frame/file_cache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <mutex>
#include <unordered_map>

namespace qk {

namespace {

struct Signature {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  timespec mtime{}, ctime{};

  explicit Signature(const struct stat& st)
      : dev(st.st_dev), ino(st.st_ino), size(st.st_size), mtime(st.st_mtim), ctime(st.st_ctim) {}
  bool operator==(const Signature& o) const {
    return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
           mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
           ctime.tv_nsec == o.ctime.tv_nsec;
  }
  // Time stamps advance in ticks of the kernel's coarse clock: a file changed this recently may
  // change again without its stamps showing it.
  bool settled() const { return std::time(nullptr) - mtime.tv_sec > 2; }
};

struct Entry {
  Signature signature;
  std::shared_ptr<const std::string> bytes;
};

std::mutex g_mutex;
std::unordered_map<std::string, Entry> g_files;

bool read_all(int fd, std::string* bytes) {
  char buf[8192];
  while (true) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    bytes->append(buf, static_cast<std::size_t>(n));
  }
}

}  // namespace

std::shared_ptr<const std::string> small_file_bytes(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    std::lock_guard lock(g_mutex);
    g_files.erase(path);
    return nullptr;
  }
  {
    std::lock_guard lock(g_mutex);
    auto it = g_files.find(path);
    if (it != g_files.end() && it->second.signature == Signature(st)) return it->second.bytes;
  }
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  std::string bytes;
  struct stat after {};
  bool read = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && read_all(fd, &bytes);
  // Kept only when nothing changed it while it was read.
  bool same = read && ::fstat(fd, &after) == 0 && Signature(after) == Signature(st);
  ::close(fd);
  if (!read) return nullptr;
  auto shared = std::make_shared<const std::string>(std::move(bytes));
  std::lock_guard lock(g_mutex);
  if (same && Signature(st).settled())
    g_files.insert_or_assign(path, Entry{Signature(st), shared});
  else
    g_files.erase(path);
  return shared;
}

}  // namespace qk
