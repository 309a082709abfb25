// Where the component lives and where per-user settings are kept on this platform.
#pragma once

#include <string>

namespace qk {

// The component's own folder, without a trailing separator: $QK_HOME when set, otherwise the
// folder of the loaded qk_protocol library.
std::string component_folder();

// The per-user application setting (application, section, key) from
// $XDG_CONFIG_HOME/varlen-system/settings.ini (default ~/.config); "" when absent.
std::string per_user_setting(const std::string& section, const std::string& key);

// The folder separator of this platform, used where the stored paths use "\".
inline constexpr char kPathSeparator = '/';

// Appends the separator when the folder does not end in one.
std::string with_trailing_separator(std::string folder);

}  // namespace qk
