// The registry helper companion (library qk_registry): registers itself as
// "QK_Registry_Utility.clsRegistry" and serves the settings store's import from a Windows
// registry export ("*.reg") in the component's folder (docs/files.md).
#pragma once

#include <string>
#include <vector>

namespace qk {

void register_registry_helper();

// The exports the helper reads: the files named here, in this order, or (empty, the default)
// every "*.reg" of the component's folder in name order.
void use_registry_exports(std::vector<std::string> files);
// The exports the helper would read now.
std::vector<std::string> registry_exports();
// Reads every export as the helper will, changing nothing; raises the first problem (error 13
// naming the file and line, or error 53 for a file that cannot be read).
void check_registry_exports();

}  // namespace qk
