// Shared string helpers that bring values to their field widths. The trapped formatter lives in
// modUtility; the untrapped copy and the in-place helpers belong to the second helper module
// (modHelpers) used by the VAT and totals builders.
#pragma once

#include <cstdint>
#include <string>

#include "qk/string_array.h"

namespace qk {

namespace modUtility {

// Mode 1: right-aligned, zero-filled, leftmost characters dropped, and every character that is
// not a digit or "," becomes "0". Any other mode: left-aligned, blank-filled, cut on the right.
// Reports errors ("p_strFormattaCampo", "modUtility") and returns what was built so far: a
// negative width gives "".
std::string p_strFormattaCampo(const std::string& value, int16_t iModo, int16_t iLen);

// Every "," replaced by ".".
std::string p_strCommaToPeriod(const std::string& s);

// The leading number of p_strCommaToPeriod(s), rounded half to even to a 32-bit integer (error 6
// beyond the range); 0 when the text does not start with a number.
int32_t p_lngNumericValue(const std::string& s);

// Number of positions holding c; strings longer than 32767 characters raise error 6.
int32_t p_intCountCharacter(const std::string& s, const std::string& c);

// Consecutive chunks of length n, the last one shorter; n is lowered to the length of a shorter
// last chunk, in the caller's variable. An empty text gives the unallocated array. A chunk
// length below 1 raises error 5 (the chunking could never end).
automation::StringArray m_strSplitString(const std::string& text, int16_t& n);

}  // namespace modUtility

namespace modHelpers {

// The formatter without a trap: errors go to the caller.
std::string p_strFormattaCampo(const std::string& value, int16_t iModo, int16_t iLen);

// Replaces "," by "." in the caller's string and returns it; more than 255 characters raise
// error 6 before anything is replaced.
std::string p_strCommaToPeriodInPlace(std::string& s);
int32_t p_lngNumericValueInPlace(std::string& s);

}  // namespace modHelpers

}  // namespace qk
