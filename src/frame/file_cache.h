// The component's small files (settings store, parameters, configuration, translations) are read
// by every object it creates. Their bytes are kept while the file is unchanged: a stat() tells,
// by identity, size and time stamps, whether the file is the one read before.
#pragma once

#include <memory>
#include <string>

namespace qk {

// The file's bytes, or nullptr when it does not exist or cannot be read. Always what the file
// holds now: a file changed in the last seconds is read again each time, since another change
// within the same time stamp would not show.
std::shared_ptr<const std::string> small_file_bytes(const std::string& path);

}  // namespace qk
