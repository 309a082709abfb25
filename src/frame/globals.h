// The shared state of one thread: every class instance created on a thread reads and overwrites
// the same slots, as the component's creation sequence expects.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "qk/companions.h"

namespace qk {

class clsRegistry2Xml;

struct Globals {
  std::shared_ptr<clsRegistry2Xml> objRegistry;
  bool booSilent = false;   // false at thread start, until a clsAbbinamentoTasti reads "Silent"
  std::string strApplPath;  // installation folder, always ending in the separator
  std::shared_ptr<DbAccess> objDbAccess;
  std::shared_ptr<Translate> objTranslate;
  std::map<std::string, std::string> colStrings;  // translated texts by key
  std::shared_ptr<Logger> objLogger;              // set only by a host-side extension
};

// This thread's shared state.
Globals& globals();

// The database object of this thread, or error 91 when no class has created one yet.
DbAccess& db();

// An item of the keyed collection of translated texts; a missing key raises error 5.
const std::string& collection_item(const std::map<std::string, std::string>& c,
                                   const std::string& key);

}  // namespace qk
