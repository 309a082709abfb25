// Whether the component can read a row: every INTEGER a 32-bit whole number in its range, every
// flag string exactly its width of "0"/"1", every family one it knows. Import refuses rows that
// fail; the sync names them when a record cannot be built.
#pragma once

#include <string>
#include <vector>

#include "qk/archive_schema.h"
#include "qk/column_rules.h"
#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {
namespace QK_API sync {

using archive::value_problem;

// The row's identity for messages: "TASTIERA_PLU (TP_BNC 1, TP_SCALE 1, TP_KEY 5)".
std::string row_name(const archive::Table& t, const automation::Recordset& row);

// One line per unreadable value of every row of the recordset (which must hold the table's
// columns): "<row name>: <column> <problem>".
std::vector<std::string> row_problems(const archive::Table& t, automation::Recordset& rows);

}  // namespace sync
}  // namespace qk
