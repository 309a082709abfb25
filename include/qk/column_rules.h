// The rule of a column of the archive, as data (qk/archive_schema.h) read by one function: the
// sync's row checks, the importer and the SQLite archive's check of stored rows all ask it, and the
// PostgreSQL archive renders the same fields as SQL.
#pragma once

#include <string>

#include "qk/archive_schema.h"
#include "qk/export.h"
#include "qk/variant.h"

namespace qk::archive {

// Why the column cannot hold the value ("" when it can): an INTEGER a 32-bit whole number in its
// range, a REAL a number, a flag string exactly its width of "0"/"1", a date DDMMYYYY of the
// calendar (or empty), one of the allowed values. Null is a problem only in a column without a
// default that must not be empty. Text is judged in either form (stored or 8-bit): that it has
// an 8-bit form at all is the archive's concern, where the stored text is decoded.
QK_API std::string value_problem(const Column& c, const automation::Variant& v);

}  // namespace qk::archive
