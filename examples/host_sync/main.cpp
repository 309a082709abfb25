// A host's daily job, the guarded way: everything pending on one line goes through the host's
// own transport, and a record is reset only once the transport confirmed it and only while its
// archive rows are as they were when it was built (a change made meanwhile stays pending).
//
//   host_sync INSTALLATION LINE FILE [COMMAND]
//
// Appends each record to FILE (CR LF after each; made durable before the resets) and, when
// COMMAND is given, runs it after each record with QK_DEPT, QK_KIND and QK_ID set (where a host
// would log or notify). Prints the report; exit status 0 when everything pending was delivered.
#include <fcntl.h>
#include <qk/archive.h>
#include <qk/host.h>
#include <qk/registry_helper.h>
#include <qk/sync.h>
#include <qk/translations.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The host's transport: send() takes one string of a record, commit() makes what was taken
// durable. The sync resets the records of a batch only after commit() returned true.
class FileLine : public qk::sync::Transport {
 public:
  FileLine(std::string path, std::string command)
      : path_(std::move(path)), command_(std::move(command)) {}
  ~FileLine() override {
    if (fd_ >= 0) ::close(fd_);
  }
  bool send(const qk::sync::Envelope& to, const std::string& bytes) override {
    if (fd_ < 0) fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    std::string line = bytes + "\r\n";
    if (fd_ < 0 || ::write(fd_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
      return fail("cannot write " + path_);
    if (!command_.empty()) {
      ::setenv("QK_DEPT", std::to_string(to.dept).c_str(), 1);
      ::setenv("QK_KIND", to.kind.c_str(), 1);
      ::setenv("QK_ID", std::to_string(to.id).c_str(), 1);
      if (std::system(command_.c_str()) != 0) return fail("\"" + command_ + "\" failed");
    }
    return true;
  }
  bool commit() override {
    return fd_ < 0 || ::fdatasync(fd_) == 0 || fail("cannot sync " + path_);
  }
  std::size_t batch() const override { return 64; }
  const std::string& error() const override { return error_; }

 private:
  bool fail(std::string why) {
    error_ = std::move(why);
    return false;
  }
  std::string path_, command_, error_;
  int fd_ = -1;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::fprintf(stderr, "usage: %s INSTALLATION LINE FILE [COMMAND]\n", argv[0]);
    return 2;
  }
  qk::register_archive();
  qk::register_translations();
  qk::register_registry_helper();
  qk::host::StartOptions start;
  start.installation_folder = argv[1];
  qk::host::start(start);

  FileLine line(argv[3], argc == 5 ? argv[4] : "");
  qk::sync::SyncOptions o;
  o.scope.line = std::atoi(argv[2]);
  o.scope.store = qk::sync::installation_store();
  o.by = "host_sync";  // the journal says who ran it, over what
  o.transport = std::string("file ") + argv[3];
  o.say = [](const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); };
  auto archive = qk::sync::open_archive_tools();
  qk::sync::SyncReport r = qk::sync::run_sync(*archive, line, o);
  std::printf("%ld records, %lld bytes delivered%s%s\n", r.records(), r.bytes(),
              r.stopped.empty() ? "" : "; stopped: ", r.stopped.c_str());
  return r.status == qk::sync::SyncReport::Done ? 0 : 1;
}
