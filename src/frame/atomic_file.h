// The atomic writer of qk::save_file_atomically with the file's permissions: 0600 for a file
// that holds a secret. The temporary file has 0600 from its creation, so a secret is never
// readable by others, not even for a moment.
#pragma once

#include <string>

namespace qk {

void save_file_atomically(const std::string& path, const std::string& bytes, unsigned mode);

}  // namespace qk
