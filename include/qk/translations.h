// The translation companion (library qk_translate): registers itself as
// "QK_Translate.clsTranslate" and reads "<PathLanguages>/<LangCode>.lng" (docs/files.md).
#pragma once

#include "qk/export.h"

namespace qk {

QK_API void register_translations();

}  // namespace qk
