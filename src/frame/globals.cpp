#include "frame/globals.h"

#include "config/clsRegistry2Xml.h"
#include "qk/error.h"

namespace qk {

Globals& globals() {
  thread_local Globals g;
  return g;
}

DbAccess& db() {
  auto& p = globals().objDbAccess;
  if (!p) automation::raise(automation::kObjectNotSet);
  return *p;
}

const std::string& collection_item(const std::map<std::string, std::string>& c,
                                   const std::string& key) {
  auto it = c.find(key);
  if (it == c.end()) automation::raise(automation::kInvalidProcedureCall);
  return it->second;
}

}  // namespace qk
