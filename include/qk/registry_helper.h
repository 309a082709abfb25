// The registry helper companion (library qk_registry): registers itself as
// "QK_Registry_Utility.clsRegistry" and serves the settings store's import from a Windows
// registry export ("*.reg") in the component's folder (docs/files.md).
#pragma once

namespace qk {

void register_registry_helper();

}  // namespace qk
