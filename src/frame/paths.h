// Where the component lives and where per-user settings are kept on this platform.
#pragma once

#include <string>

#include "qk/host.h"

namespace qk {

// The per-user application setting (application, section, key) from
// $XDG_CONFIG_HOME/varlen-system/settings.ini (default ~/.config); "" when absent.
std::string per_user_setting(const std::string& section, const std::string& key);

// The folder separator of this platform, used where the stored paths use "\".
inline constexpr char kPathSeparator = '/';

// Sets the component's folder for the process ("" goes back to $QK_HOME or the library's folder).
void set_component_folder(const std::string& folder);

// Appends the separator when the folder does not end in one.
std::string with_trailing_separator(std::string folder);

}  // namespace qk
