// What each scale family takes, and in which form: the catalogue of qk/families.h, which the
// sync, the pending list and marking follow (docs/sync.md shows it too).
#pragma once

#include <string>

#include "qk/export.h"
#include "qk/families.h"

namespace qk {
namespace QK_API sync {

using qk::Family;
using qk::Form;
using qk::Kind;
using qk::kind_name;
using qk::kKinds;

// The family of a line (any letter case), or nullptr for an unknown one.
inline const Family* forms_of(const std::string& family) {
  return find_family(family);
}

}  // namespace sync
}  // namespace qk
