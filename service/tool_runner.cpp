#include "tool_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

extern char** environ;

namespace qk::service {

pid_t ToolRunner::start(const std::vector<std::string>& args, int* out, int err,
                        std::string* why) const {
  std::vector<std::string> all = {program_, "--home", installation_, "--format", "json"};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : all) argv.push_back(s.data());
  argv.push_back(nullptr);
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) {
    *why = std::string("cannot make a pipe: ") + std::strerror(errno);
    return -1;
  }
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&files, pipe[1], 1);
  if (err >= 0) posix_spawn_file_actions_adddup2(&files, err, 2);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int sig : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) sigaddset(&defaults, sig);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr,
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  int rc = posix_spawn(&pid, program_.c_str(), &files, &attr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attr);
  ::close(pipe[1]);
  if (rc != 0) {
    ::close(pipe[0]);
    *why = program_ + " cannot be started: " + std::strerror(rc);
    return -1;
  }
  *out = pipe[0];
  return pid;
}

ToolAnswer ToolRunner::run(const std::vector<std::string>& args, double timeout) const {
  ToolAnswer a;
  int err[2];
  if (::pipe2(err, O_CLOEXEC) != 0) {
    a.err = std::string("cannot make a pipe: ") + std::strerror(errno);
    return a;
  }
  int out = -1;
  pid_t pid = start(args, &out, err[1], &a.err);
  ::close(err[1]);
  if (pid < 0) {
    ::close(err[0]);
    return a;
  }
  auto until = std::chrono::steady_clock::now() +
               std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                   std::chrono::duration<double>(timeout));
  pollfd fds[2] = {{out, POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* into[2] = {&a.out, &a.err};
  bool late = false;
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    until - std::chrono::steady_clock::now())
                    .count();
    if (left <= 0) {
      late = true;
      break;
    }
    if (::poll(fds, 2, static_cast<int>(left)) < 0 && errno != EINTR) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buf[65536];
      ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
      if (n > 0) {
        into[i]->append(buf, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(fds[i].fd);
        fds[i].fd = -1;
      }
    }
  }
  for (auto& f : fds)
    if (f.fd >= 0) ::close(f.fd);
  if (late) ::kill(-pid, SIGKILL);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (late)
    a.err = "the archive did not answer within " + std::to_string(static_cast<int>(timeout)) + " s";
  else if (WIFEXITED(status))
    a.status = WEXITSTATUS(status);
  return a;
}

}  // namespace qk::service
