// What the back-office tools need of the archive to tell whether a record without flags (VAT
// rates, electronic texts, layouts, images) changed since it was last delivered, beyond the
// members of qk/archive_tools.h: the database companion offers it beside ArchiveTools (with a
// companion without it, such records are sent only by a full sync).
#pragma once

#include <string>
#include <vector>

#include "qk/archive_schema.h"
#include "qk/archive_tools.h"
#include "qk/export.h"

namespace qk {

class QK_API ArchiveVersions : public virtual automation::Object {
 public:
  ArchiveVersions() = default;
  QK_NOT_COPIED(ArchiveVersions);

  // For each distinct value of the columns `by` of a table with ROW_VERSION, its number of rows
  // and their highest ROW_VERSION: a recordset of the columns `by`, then ROWS and VERSION, in
  // the order of `by`. One read for the whole table; no `by` gives one row for all of it. Row
  // versions only grow, so the pair changes whenever a row of the group is added, changed or
  // removed.
  virtual automation::RecordsetPtr row_versions(const archive::Table& t,
                                                const std::vector<std::string>& by) = 0;
};

}  // namespace qk
