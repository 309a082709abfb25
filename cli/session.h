// What every qkp command shares: the companions registered, a logger that prints each report to
// stderr and remembers that one happened, and the host callbacks of a terminal tool.
#pragma once

#include <string>

namespace qkp {

// Registers the companions and installs the callbacks. Call once, before any class is created.
void start_session();

// True when any error was reported since the session started (exit status 1).
bool errors_reported();
// Counts a failure found by the tool itself and prints it ("qkp: <text>").
void fail(const std::string& text);

}  // namespace qkp
