// What a service needs of the archive to act as soon as something changes, beyond
// qk/archive_tools.h: the database companion offers it beside ArchiveTools. A companion without it
// is looked at on a fixed period instead.
#pragma once

#include "qk/archive_tools.h"
#include "qk/export.h"

namespace qk {

class QK_API ArchiveChanges : public virtual automation::Object {
 public:
  ArchiveChanges() = default;
  QK_NOT_COPIED(ArchiveChanges);

  // Waits up to `seconds` for another connection to commit a change to the archive's master data
  // or network (the first call only starts watching and returns false); true when one did. A
  // file archive is asked for its change counter; a server tells its listeners itself.
  virtual bool wait_for_change(double seconds) = 0;
};

}  // namespace qk
