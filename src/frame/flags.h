// Transmission flags: one character per scale line, "1" still to send, "0" done. Each
// flag-carrying class configures this piece with its width, its group query and its update.
#pragma once

#include <string>
#include <string_view>

#include "automation/conversions.h"
#include "qk/recordset.h"

namespace qk::flags {

inline constexpr int kLineWidth = 8;     // key bindings, touch layouts, lots, advertising
inline constexpr int kBarcodeWidth = 4;  // barcode formats

// OR of the column over every record of the group, starting from width "0"s. A "1" beyond the
// width raises error 5 (the merge cannot set that position). A Null flag adds nothing.
std::string merge(automation::Recordset& group, std::string_view column, int width);

// True unless configured(dept, index) is 0, False or unset; an array that does not cover the
// department or the index raises error 9.
bool is_configured(const automation::Variant& configured, long dept, long index);

// Sets to "0" every position whose line is not configured for the department (indexes 0 to
// count - 1).
void mask_unconfigured(std::string& flags, const automation::Variant& configured, long dept,
                       int count);

// Sets position `line` (1-based) to "0"; outside 1..length raises error 5.
void clear_line(std::string& flags, long line);

}  // namespace qk::flags
