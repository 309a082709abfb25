// The host language's number rules behind Variant's conversions, for the component's own use:
// rounding, checked narrowing, parsing, Val, Format and the text form of doubles.
#pragma once

#include <string>
#include <string_view>

#include "qk/variant.h"

namespace qk::automation {

// Rounds to the nearest integer with ties to the even neighbour, as the host's CInt/CLng do.
double round_half_even(double v);
// Checked conversions of a double, raising error 6 outside the type's range after rounding.
int16_t double_to_int16(double v);
int32_t double_to_int32(double v);

// Reads a whole string as a number the way the host converts a string to a number: blanks
// around it, an optional sign, decimals with ".", an exponent, or "&H"/"&O" prefixes. Anything
// else raises error 13. Hexadecimal and octal values wrap into the signed 32-bit range.
double parse_number(std::string_view s);
// True when parse_number would succeed.
bool looks_numeric(std::string_view s);

// The host's Val: the number at the start of the text (leading blanks skipped, reading stops at
// the first character that cannot continue a number; "&H"/"&O" read hexadecimal/octal), 0 when
// the text does not start with a number.
double leading_number(std::string_view s);

// The host's Format with a pattern of zeros ("0", "00", "000"): the number rounded half away from
// zero, written with at least that many digits and never truncated. A value that is not numeric
// is returned as its text.
std::string format_digits(const Variant& value, std::string_view pattern);
std::string format_digits(long long value, int min_digits);

// The host's text form of a double: at most 15 significant digits, no trailing zeros.
std::string double_to_text(double v);

// Integer arithmetic of the host's 16- and 32-bit types: a result outside the type raises
// error 6 (no wrap-around).
int16_t checked_int16(int64_t v);
int32_t checked_int32(int64_t v);

// The host's string functions the component relies on.
// Trim: blanks (never tabs or other spaces) removed at both ends.
std::string trim(std::string_view s);
// Mid(s, start, length), start counted from 1: a start past the end gives "", a length past the
// end takes what is there.
std::string mid(std::string_view s, std::size_t start, std::size_t length);
// UCase of the letters a-z (the component's texts compare only ASCII case).
std::string ucase(std::string_view s);

}  // namespace qk::automation
