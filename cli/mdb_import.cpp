#include "mdb_import.h"

#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "qk/archive_schema.h"

namespace qkp {

namespace {

// Runs a program (found on PATH) with arguments, no shell in between; its standard output.
std::string run(const std::vector<std::string>& args) {
  int out[2];
  if (::pipe(out) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
  pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
  if (pid == 0) {
    ::dup2(out[1], 1);
    ::close(out[0]);
    ::close(out[1]);
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(out[1]);
  std::string text;
  char buf[65536];
  for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    text.append(buf, static_cast<std::size_t>(n));
  }
  ::close(out[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
    throw std::runtime_error(
        args[0] + " was not found: install Debian's mdbtools (apt-get install mdbtools)");
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error(args[0] + " could not read " + args[args.size() > 2 ? 2 : 1] +
                             " (exit status " + std::to_string(WEXITSTATUS(status)) + ")");
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
    std::string csv = run({"mdb-export", "-D", "%Y-%m-%d %H:%M:%S", path, name});
    CsvFormat format;
    format.delimiter = ',';
    format.encoding = CsvEncoding::Utf8;
    format.ignore_extra = true;  // desktop columns the archive does not keep
    result.files.push_back(parse_csv(std::move(csv), std::string(t->name) + ".csv", format));
  }
  for (const auto& w : wanted)
    throw std::runtime_error(path + " has no table " + w + " that the archive knows");
  return result;
}

}  // namespace qkp
