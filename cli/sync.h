// The host side of the component: what a scale line is missing, and delivering it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "families.h"
#include "network.h"
#include "output.h"

namespace qkp {

// One record to send: its strings, and the class's own flag reset for the served line (empty
// for records without flags).
struct Item {
  Kind kind;
  std::string label;                   // "key block 2", "lot 12", …
  std::function<std::string()> flags;  // the record's flag string, for listings
  std::function<std::vector<std::string>()> build;
  std::function<void()> reset;
};

struct SyncScope {
  long line = 0;
  long dept = -1;  // -1: every department where the line is configured
  bool full = false;
};

// The records of one kind for the department's line (pending ones, or all with full).
std::vector<Item> collect(Kind kind, const ScaleLine& where, const FamilyForms& forms,
                          const SyncScope& scope, const qk::automation::Variant& configured);

struct SyncOptions {
  SyncScope scope;
  std::string out_file;  // append here, fsync before resetting
  std::string exec;      // or run this command once per string
  Format format = Format::Raw;
};

// Runs the sync; returns false when something failed (reported on stderr). What was not
// delivered stays pending.
bool run_sync(const SyncOptions& o);

}  // namespace qkp
