// A seam in the atomic file writer: a test makes the next save fail at one step, as if the system
// had refused it, and checks that the previous file is left whole.
#pragma once

#include <cerrno>

namespace qk::file_faults {

enum class Step { Create, Write, Flush, Rename };

// The next atomic save on this thread fails at `step` with `error`.
void fail_next(Step step, int error = EIO);
// For the writer: true, with errno set, when this step is the one to fail now.
bool injected(Step step);

}  // namespace qk::file_faults
