// Creation of late-bound components by their string identifier ("QK_Db_Access.clsDbAccess").
// Implementations register a creator; the component creates by name and never links them.
#pragma once

#include <functional>
#include <string>

#include "automation/error.h"
#include "automation/variant.h"

namespace qk::automation {

using Creator = std::function<ObjectPtr()>;

// Registers (or replaces) the creator of an identifier. Identifiers compare case-insensitively,
// as program identifiers do.
void register_component(const std::string& identifier, Creator creator);
void unregister_component(const std::string& identifier);

// Creates a new instance; an unregistered identifier raises error 429.
ObjectPtr create_object(const std::string& identifier);

template <class T>
std::shared_ptr<T> create_as(const std::string& identifier) {
  auto p = std::dynamic_pointer_cast<T>(create_object(identifier));
  if (!p) raise(kMemberNotSupported);
  return p;
}

}  // namespace qk::automation
