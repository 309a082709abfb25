// What every qkp command shares: the companions registered, the component's reports and boxes
// printed with what the tool was doing ("department 1, line 2, layout 3: …"), and the exit
// status.
#pragma once

#include <functional>
#include <string>

namespace qkp {

// Exit statuses (README and docs/cli.md list them).
enum Exit : int {
  kExitOk = 0,
  kExitFailed = 1,   // something could not be done as asked; the messages say what
  kExitUsage = 2,    // the command line was wrong; nothing was done
  kExitNothing = 3,  // pending: nothing is pending
  kExitBusy = 4,     // sync: another sync holds the line
};

// The installation folder when neither --home nor QK_HOME names one: $XDG_DATA_HOME/qk_protocol
// when set, else /var/lib/qk_protocol for root and ~/.local/share/qk_protocol for a user.
// Never the folder of the libraries, which an installed program may not even write.
std::string default_home();
// Where the installation folder came from: "--home", "QK_HOME" or "the data folder".
const std::string& home_source();
void set_home_source(std::string source);

// Registers the companions and installs the callbacks. Call once, before any class is created.
void start_session();

// The exit status the command has earned so far (1 once anything failed).
int exit_status();
// Asks for a status; a failure (1) is never replaced by a milder one.
void set_exit_status(int status);
// While a command says itself that the archive's connection was lost (the sync does, once, with
// its cause), the component's own reports of that loss are counted but not printed again.
void lost_connection_said_by_command(bool said);
// Counts a failure found by the tool itself and prints it ("qkp: <context>: <text>").
void fail(const std::string& text);
// Prints a note on stderr without counting a failure.
void note(const std::string& text);
// Runs a command's work; what stops it is a failure printed as "<failure>: <why>".
void reported(const std::string& failure, const std::function<void()>& work);

}  // namespace qkp
