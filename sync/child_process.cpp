#include "qk/sync/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace qk::sync {

namespace {

volatile std::sig_atomic_t g_stop_signal = 0;

void on_stop(int sig) {
  g_stop_signal = sig;
}

// Waits for the child to exit: up to `seconds` (forever when negative) and no longer than until a
// stop is asked. True and *status when it exited.
bool wait_for(pid_t pid, double seconds, int* status) {
  for (int waited_ms = 0;; waited_ms += 10) {
    if (stop_signal() != 0) return false;
    if (seconds < 0) {
      // Blocking: the stop handlers interrupt it.
      pid_t r = ::waitpid(pid, status, 0);
      if (r == pid || (r < 0 && errno != EINTR)) return true;
      continue;
    }
    pid_t r = ::waitpid(pid, status, WNOHANG);
    if (r == pid || (r < 0 && errno != EINTR)) return true;
    if (waited_ms >= seconds * 1000) return false;
    ::usleep(10000);
  }
}

// Ends a group that did not exit in time: SIGTERM, then SIGKILL a second later.
void end_group(pid_t pid, int* status) {
  ::kill(-pid, SIGTERM);
  for (int i = 0; i < 100; ++i) {
    if (::waitpid(pid, status, WNOHANG) != 0) return;
    ::usleep(10000);
  }
  ::kill(-pid, SIGKILL);
  while (::waitpid(pid, status, 0) < 0 && errno == EINTR) {
  }
}

// After ending a group: lets its other members (the command's own children) finish dying, so
// that none outlives qkp. Bounded: a member the system has not reaped yet still counts.
void await_group_end(pid_t pgid) {
  for (int i = 0; i < 50 && ::kill(-pgid, 0) == 0; ++i) ::usleep(10000);
}

}  // namespace

void install_stop_handlers() {
  struct sigaction sa {};
  sa.sa_handler = on_stop;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = 0;  // no SA_RESTART: a blocking read or wait returns EINTR
  ::sigaction(SIGINT, &sa, nullptr);
  ::sigaction(SIGTERM, &sa, nullptr);
  std::signal(SIGPIPE, SIG_IGN);  // a transport that stops reading is an error, not a death
}

int stop_signal() {
  return g_stop_signal;
}

void reraise_stop_signal() {
  int sig = g_stop_signal;
  if (sig == 0) return;
  std::signal(sig, SIG_DFL);
  ::raise(sig);
}

std::optional<Child> start_child(const std::string& command, const std::vector<std::string>& env,
                                 bool capture_output, std::string* error) {
  int in[2] = {-1, -1}, out[2] = {-1, -1};
  auto failed = [&](const char* what) -> std::optional<Child> {
    if (error) *error = std::string(what) + ": " + std::strerror(errno);
    for (int fd : {in[0], in[1], out[0], out[1]})
      if (fd >= 0) ::close(fd);
    return std::nullopt;
  };
  if (::pipe2(in, O_CLOEXEC) != 0) return failed("pipe");
  if (capture_output && ::pipe2(out, O_CLOEXEC) != 0) return failed("pipe");
  std::vector<std::string> own = env;  // putenv keeps the pointers
  pid_t pid = ::fork();
  if (pid < 0) return failed("fork");
  if (pid == 0) {
    ::setpgid(0, 0);
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGPIPE, SIG_DFL);
    ::dup2(in[0], 0);
    if (capture_output) ::dup2(out[1], 1);
    for (auto& e : own) ::putenv(e.data());
    ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::setpgid(pid, pid);  // also here, so the group exists whichever process runs first
  ::close(in[0]);
  if (capture_output) ::close(out[1]);
  return Child{pid, in[1], capture_output ? out[0] : -1};
}

int end_child(Child& c, double patience) {
  if (c.in >= 0) ::close(c.in);
  if (c.out >= 0) ::close(c.out);
  c.in = c.out = -1;
  int status = 0;
  if (c.pid <= 0) return status;
  bool ended = false;
  if (!wait_for(c.pid, patience, &status)) {
    end_group(c.pid, &status);
    ended = true;
  }
  // What the command left running in its group goes with it.
  ::kill(-c.pid, SIGTERM);
  if (ended) await_group_end(c.pid);
  c.pid = -1;
  return status;
}

std::string describe_status(int status) {
  // The shell's own statuses for a command it could not run.
  if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
    return "was not found (the shell exited with status 127: no such command)";
  if (WIFEXITED(status) && WEXITSTATUS(status) == 126)
    return "could not be run (the shell exited with status 126: not executable)";
  // The shell's status for a command a signal ended.
  if (WIFEXITED(status) && WEXITSTATUS(status) > 128 && WEXITSTATUS(status) < 128 + 65)
    return "was killed by signal " + std::to_string(WEXITSTATUS(status) - 128) +
           " (the shell exited with status " + std::to_string(WEXITSTATUS(status)) + ")";
  if (WIFEXITED(status)) return "exited with status " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
  return "ended";
}

bool write_all(int fd, const char* p, std::size_t n) {
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w < 0 && errno == EINTR && stop_signal() == 0) continue;
    if (w <= 0) {
      if (w == 0) errno = EIO;
      return false;
    }
    p += w;
    n -= static_cast<std::size_t>(w);
  }
  return true;
}

}  // namespace qk::sync
