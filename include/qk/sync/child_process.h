// Transport processes: started with `sh -c` in a process group of their own (so that ending the
// group ends whatever the command started), and ended when the user stops qkp.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "qk/export.h"

namespace qk {
namespace QK_API sync {

// SIGINT and SIGTERM set a stop request instead of ending the process at once: delivery stops at
// the next record, transport processes are ended, and the flags stay as delivery left them.
// Blocking calls are interrupted (no SA_RESTART), so a wait notices the request.
void install_stop_handlers();
// The signal that asked to stop, or 0.
int stop_signal();
// Raises the stop signal again with its default action (the exit status says what ended qkp).
void reraise_stop_signal();

struct Child {
  pid_t pid = -1;
  int in = -1;   // its standard input
  int out = -1;  // its standard output, when asked for
};

// Starts `sh -c command` with `env` ("NAME=value") added to the environment. nullopt with the
// reason in *error when it cannot.
std::optional<Child> start_child(const std::string& command, const std::vector<std::string>& env,
                                 bool capture_output, std::string* error);

// Closes what is still open towards the child and waits for it: `patience` seconds (forever when
// negative), then the whole group gets SIGTERM and, a second later, SIGKILL. A stop request ends
// the group at once. Returns the wait status.
int end_child(Child& c, double patience);

// "exited with status 3", "was killed by signal 9", "was not found (…status 127…)".
std::string describe_status(int status);

// Writes everything, retrying after a signal unless a stop was asked; false with errno set.
bool write_all(int fd, const char* p, std::size_t n);

}  // namespace sync
}  // namespace qk
