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

// A path from the settings: an absolute one as it is, a relative one inside `base`.
std::string resolve_in(const std::string& base, const std::string& path);

// The installation folder: the setting "Path" of section "Appl" (relative to the component's
// folder when it is relative), or the component's folder. No trailing separator.
std::string installation_folder();

// Appends the separator when the folder does not end in one.
std::string with_trailing_separator(std::string folder);

}  // namespace qk
