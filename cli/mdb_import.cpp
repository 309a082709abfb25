#include "mdb_import.h"

#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "qk/archive_schema.h"

namespace qkp {

namespace {

// A program (found on PATH) started with arguments, no shell in between; its standard output
// read as it writes. At the end of its output it is waited for: one that could not read its file
// raises an error naming the program and the file.
class Program {
 public:
  explicit Program(std::vector<std::string> args) : args_(std::move(args)) {
    int out[2];
    if (::pipe(out) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid_ == 0) {
      ::dup2(out[1], 1);
      ::close(out[0]);
      ::close(out[1]);
      std::vector<char*> argv;
      for (const auto& a : args_) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execvp(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    fd_ = out[0];
  }
  ~Program() {
    if (fd_ >= 0) ::close(fd_);
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      wait();
    }
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  std::size_t read(char* buffer, std::size_t capacity) {
    while (fd_ >= 0) {
      ssize_t n = ::read(fd_, buffer, capacity);
      if (n < 0 && errno == EINTR) continue;
      if (n > 0) return static_cast<std::size_t>(n);
      ::close(fd_);
      fd_ = -1;
    }
    if (pid_ > 0) {
      int status = wait();
      if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        throw std::runtime_error(
            args_[0] + " was not found: install Debian's mdbtools (apt-get install mdbtools)");
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error(args_[0] + " could not read " + args_[args_.size() > 2 ? 2 : 1] +
                                 " (exit status " + std::to_string(WEXITSTATUS(status)) + ")");
    }
    return 0;
  }

 private:
  int wait() {
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status;
  }
  std::vector<std::string> args_;
  pid_t pid_ = -1;
  int fd_ = -1;
};

std::string run(const std::vector<std::string>& args) {
  Program p(args);
  std::string text;
  char buf[65536];
  for (std::size_t n; (n = p.read(buf, sizeof buf)) > 0;) text.append(buf, n);
  return text;
}

}  // namespace

MdbTables read_mdb(const std::string& path, const std::vector<std::string>& only) {
  if (::access(path.c_str(), R_OK) != 0)
    throw std::runtime_error(path + ": cannot be read (" + std::strerror(errno) + ")");
  MdbTables result;
  std::istringstream list(run({"mdb-tables", "-1", path}));
  std::vector<std::string> wanted = only;
  for (std::string name; std::getline(list, name);) {
    if (!name.empty() && name.back() == '\r') name.pop_back();
    if (name.empty()) continue;
    const qk::archive::Table* t = qk::archive::find_table_any_case(name);
    if (t && t->own) t = nullptr;  // the journal is the syncs' own
    bool asked = only.empty();
    for (auto it = wanted.begin(); it != wanted.end(); ++it)
      if (strcasecmp(it->c_str(), name.c_str()) == 0) {
        asked = true;
        wanted.erase(it);
        break;
      }
    if (!t || !asked) {
      if (!t) result.skipped.push_back(name);
      continue;
    }
    // Dates as the archive writes them; text in UTF-8, fields quoted as import-csv reads them.
    CsvFormat format;
    format.delimiter = ',';
    format.encoding = CsvEncoding::Utf8;
    format.ignore_extra = true;  // desktop columns the archive does not keep
    std::vector<std::string> args = {"mdb-export", "-D", "%Y-%m-%d %H:%M:%S", path, name};
    result.files.push_back({std::string(t->name) + ".csv", format, [args]() -> ChunkReader {
                              auto program = std::make_shared<Program>(args);
                              return [program](char* buffer, std::size_t capacity) {
                                return program->read(buffer, capacity);
                              };
                            }});
  }
  for (const auto& w : wanted)
    throw std::runtime_error(path + " has no table " + w + " that the archive knows");
  return result;
}

}  // namespace qkp
