// Settings that carry a password: an archive server's URI with one ("postgresql://qk:pw@host/db")
// or a connection string naming one ("host=… password=…"). The settings store that holds one is
// written for its owner only, and the store's diagnostics never show it.
#pragma once

#include <string>
#include <string_view>

namespace qk::config {

bool holds_password(std::string_view value);
// The value with its password replaced by "***".
std::string without_password(std::string_view value);

}  // namespace qk::config
