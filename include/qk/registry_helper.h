// The registry helper companion (library qk_registry): registers itself as
// "QK_Registry_Utility.clsRegistry" and serves the settings store's import from a Windows
// registry export ("*.reg") in the component's folder (docs/files.md).
#pragma once

#include <string>
#include <vector>

#include "qk/export.h"

namespace qk {

QK_API void register_registry_helper();

// The exports the helper reads: the files named here, in this order, or (empty, the default)
// every "*.reg" of the component's folder in name order.
QK_API void use_registry_exports(std::vector<std::string> files);
// The exports the helper would read now.
QK_API std::vector<std::string> registry_exports();
// Reads every export as the helper will, changing nothing; raises the first problem (error 13
// naming the file and line, or error 53 for a file that cannot be read).
QK_API void check_registry_exports();

}  // namespace qk
