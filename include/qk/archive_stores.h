// What the back-office tools need of the archive to keep a chain's stores apart, beyond the
// members of qk/archive_tools.h: the database companion offers it beside ArchiveTools (a
// companion without it serves one store). Each store owns (department, line) pairs, given by the
// SL_STORE column of SCALE_LINES; docs/archive.md describes how a chain maps them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "qk/archive_tools.h"
#include "qk/export.h"

namespace qk {

class QK_API ArchiveStores : public virtual automation::Object {
 public:
  ArchiveStores() = default;
  QK_NOT_COPIED(ArchiveStores);

  // Limits this connection's flag writes to one store's lines, until called again: every write
  // of a flag column (a reset, guarded or not, the component's own statements, mark_pending)
  // changes a row's position for line L only when SCALE_LINES gives (the row's department, L) to
  // `store`; the other positions keep what the row holds when it is written. Without a value,
  // every store's lines may be written (the chain office's view). The store's lines are read
  // when it is called.
  virtual void limit_to_store(const std::optional<std::string>& store) = 0;

  // The sync lock of one store's line (ArchiveTools::lock_line is the lock of the store ""):
  // stores sync their own line 1 side by side.
  virtual std::unique_ptr<ArchiveTools::Lock> lock_store_line(const std::string& store,
                                                              int32_t line, bool wait,
                                                              std::string* holder) = 0;
};

}  // namespace qk
