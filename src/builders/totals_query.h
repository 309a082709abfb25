// The statement clsTotals.Initialize runs for a mode and a counter.
#pragma once

#include <cstdint>
#include <string>

namespace qk {

// "C"/"G": every article of the counter; "V": only those flagged for some line; 255: every counter.
std::string totals_query(const std::string& mode, int16_t counter);

}  // namespace qk
