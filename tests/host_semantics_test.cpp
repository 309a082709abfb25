// The host language's rules the component depends on, pinned one row per behaviour. A row whose
// result would surprise a C++ reader says why.
#include <gtest/gtest.h>

#include <cmath>

#include "automation/conversions.h"
#include "qk/error.h"
#include "qk/host.h"
#include "test_support.h"

using namespace qk::automation;
using qk::testing::error_of;

namespace {

TEST(HostNumbers, ReadingAWholeString) {
  struct Row {
    const char* text;
    double value;
    long error;
  } rows[] = {
      {"12", 12, 0},
      {"  12  ", 12, 0},  // blanks around the number are allowed
      {"\t12", 12, 0},    // tabs count as blanks when reading a number (unlike Trim)
      {"+12", 12, 0},
      {"-12", -12, 0},
      {"- 12", 0, kTypeMismatch},
      {"1.5", 1.5, 0},
      {".5", 0.5, 0},
      {"5.", 5, 0},
      {"1e3", 1000, 0},
      {"1E-2", 0.01, 0},
      {"1e", 0, kTypeMismatch},
      {"&H1F", 31, 0},
      {"&hff", 255, 0},
      {"&HFFFFFFFF", -1, 0},  // hexadecimal wraps into the signed 32-bit range
      {"&O17", 15, 0},
      {"&o8", 0, kTypeMismatch},
      {"&H", 0, kTypeMismatch},
      {"12,5", 0, kTypeMismatch},  // the decimal mark is "." whatever the locale
      {"1 2", 0, kTypeMismatch},
      {"", 0, kTypeMismatch},
      {"abc", 0, kTypeMismatch},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(std::string("\"") + r.text + "\"");
    EXPECT_EQ(looks_numeric(r.text), r.error == 0);
    if (r.error)
      EXPECT_EQ(error_of([&] { parse_number(r.text); }), r.error);
    else
      EXPECT_DOUBLE_EQ(parse_number(r.text), r.value);
  }
}

TEST(HostNumbers, ValStopsAtTheFirstCharacterThatCannotContinueANumber) {
  EXPECT_DOUBLE_EQ(leading_number(" 2e3 5:"), 2000);
  EXPECT_DOUBLE_EQ(leading_number("x1"), 0);
  // A number beyond a double's range overflows, as the host's Val does, rather than reading as
  // infinity (found by the number fuzzer: " 2e533 5:").
  EXPECT_EQ(error_of([] { leading_number(" 2e533 5:"); }), kOverflow);
  EXPECT_EQ(error_of([] { parse_number("1e400"); }), kOverflow);
}

TEST(HostNumbers, RoundingIsToEvenAtEveryWidth) {
  struct Row {
    double in;
    long to16, to32;  // 0 in `error` columns: no error
    long error16, error32;
  } rows[] = {
      {0.5, 0, 0, 0, 0},  // ties go to the even neighbour
      {1.5, 2, 2, 0, 0},
      {2.5, 2, 2, 0, 0},
      {-0.5, 0, 0, 0, 0},
      {-1.5, -2, -2, 0, 0},
      {2.4999, 2, 2, 0, 0},
      {32767.5, 0, 32768, kOverflow, 0},  // 32768 does not fit 16 bits
      {-32768.5, -32768, -32768, 0, 0},   // the even neighbour is in range
      {-32769.5, 0, -32770, kOverflow, 0},
      {2147483647.5, 0, 0, kOverflow, kOverflow},
      {-2147483648.5, 0, INT32_MIN, kOverflow, 0},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.in);
    if (r.error16)
      EXPECT_EQ(error_of([&] { double_to_int16(r.in); }), r.error16);
    else
      EXPECT_EQ(double_to_int16(r.in), r.to16);
    if (r.error32)
      EXPECT_EQ(error_of([&] { double_to_int32(r.in); }), r.error32);
    else
      EXPECT_EQ(double_to_int32(r.in), r.to32);
  }
  EXPECT_EQ(format_digits(Variant(2.5), "0"), "3");  // Format rounds halves away from zero
  EXPECT_EQ(format_digits(Variant(-2.5), "0"), "-3");
}

TEST(HostNumbers, CheckedArithmetic) {
  struct Row {
    int64_t in;
    bool fits16, fits32;
  } rows[] = {
      {32767, true, true},      {32768, false, true},
      {-32768, true, true},     {-32769, false, true},
      {INT32_MAX, false, true}, {int64_t(INT32_MAX) + 1, false, false},
      {INT32_MIN, false, true}, {int64_t(INT32_MIN) - 1, false, false},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.in);
    EXPECT_EQ(error_of([&] { checked_int16(r.in); }), r.fits16 ? 0L : long{kOverflow});
    EXPECT_EQ(error_of([&] { checked_int32(r.in); }), r.fits32 ? 0L : long{kOverflow});
  }
}

TEST(HostNumbers, DoubleToText) {
  struct Row {
    double in;
    const char* text;
  } rows[] = {
      {0, "0"},
      {-0.0, "0"},
      {12.5, "12.5"},
      {0.1 + 0.2, "0.3"},  // 15 significant digits hide the binary error
      {1.0 / 3, "0.333333333333333"},
      {123456789012345.0, "123456789012345"},
      {1e15, "1E+15"},  // from 16 digits on, scientific
      {0.0001, "0.0001"},
      {0.00001, "1E-05"},  // below 1e-4, scientific with two exponent digits
      {-2.5e-7, "-2.5E-07"},
  };
  for (const auto& r : rows) EXPECT_EQ(double_to_text(r.in), r.text) << r.text;
}

TEST(HostStrings, TrimMidUcase) {
  EXPECT_EQ(trim("  a b  "), "a b");
  EXPECT_EQ(trim("\ta\t"), "\ta\t");  // Trim removes blanks only
  EXPECT_EQ(trim("   "), "");
  EXPECT_EQ(mid("abcdef", 2, 3), "bcd");
  EXPECT_EQ(mid("abc", 3, 10), "c");  // a length past the end takes what is there
  EXPECT_EQ(mid("abc", 4, 1), "");    // a start past the end gives ""
  EXPECT_EQ(error_of([] { mid("abc", 0, 1); }), kInvalidProcedureCall);
  EXPECT_EQ(ucase("Modena dep \xE8"), "MODENA DEP \xE8");  // only a-z change
}

// Windows code page 1252: 0x80-0x9F hold these characters; every other byte is the Unicode code
// point of the same value. The five bytes 1252 leaves undefined map to the same code points, so
// every byte survives a round trip.
TEST(HostText, CodePage1252BothWays) {
  const char32_t high[32] = {
      0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 0x80: euro, undefined 0x81
      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // undefined 0x8D, 0x8F
      0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // undefined 0x90
      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // undefined 0x9D
  };
  auto utf8 = [](char32_t c) {
    std::string s;
    if (c < 0x80) {
      s += static_cast<char>(c);
    } else if (c < 0x800) {
      s += static_cast<char>(0xC0 | (c >> 6));
      s += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      s += static_cast<char>(0xE0 | (c >> 12));
      s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      s += static_cast<char>(0x80 | (c & 0x3F));
    }
    return s;
  };
  for (int b = 0; b < 256; ++b) {
    SCOPED_TRACE(b);
    char32_t cp = b >= 0x80 && b < 0xA0 ? high[b - 0x80] : static_cast<char32_t>(b);
    std::string byte(1, static_cast<char>(b));
    EXPECT_EQ(qk::cp1252_to_utf8(byte), utf8(cp));
    auto back = qk::utf8_to_cp1252(utf8(cp));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(*back, byte);
  }
  EXPECT_FALSE(qk::utf8_to_cp1252("\xE2\x82\xBD").has_value());  // U+20BD has no 8-bit form
  EXPECT_FALSE(qk::utf8_to_cp1252("\xC3").has_value());          // cut-off UTF-8
}

// The check without conversion agrees with the conversion, wherever in a long text the
// character falls (texts are scanned eight bytes at a time).
TEST(HostStrings, EightBitFormCheckAgreesWithTheConversion) {
  const char* characters[] = {"A",    "\xC3\xA8",         "\xE2\x82\xAC", "\xE2\x82\xBD", "\xC3",
                              "\x80", "\xF0\x9F\x98\x80", "\xC2\x81",     "\xED\xA0\x80"};
  for (const char* c : characters)
    for (std::size_t at : {0, 1, 7, 8, 9, 15, 16, 40}) {
      std::string text = std::string(at, 'x') + c + std::string(at % 5, 'y');
      SCOPED_TRACE(testing::PrintToString(text));
      EXPECT_EQ(qk::has_8bit_form(text), qk::utf8_to_cp1252(text).has_value());
    }
  EXPECT_TRUE(qk::has_8bit_form(""));
  EXPECT_FALSE(qk::has_8bit_form(std::string(64, 'a') + "\xE2\x82\xBD"));
}

TEST(HostErrors, DescriptionsByNumber) {
  struct Row {
    long number;
    const char* description;
  } rows[] = {
      {kInvalidProcedureCall, "Invalid procedure call or argument"},
      {kOverflow, "Overflow"},
      {kOutOfMemory, "Out of memory"},
      {kSubscriptOutOfRange, "Subscript out of range"},
      {kDivisionByZero, "Division by zero"},
      {kTypeMismatch, "Type mismatch"},
      {kFileNotFound, "File not found"},
      {kFileAlreadyExists, "File already exists"},
      {kInputPastEndOfFile, "Input past end of file"},
      {kPathFileAccessError, "Path/File access error"},
      {kObjectNotSet, "Object variable or With block variable not set"},
      {kForLoopNotInitialized, "For loop not initialized"},
      {kInvalidUseOfNull, "Invalid use of Null"},
      {kObjectRequired, "Object required"},
      {kCannotCreateObject, "ActiveX component can't create object"},
      {kMemberNotSupported, "Object doesn't support this property or method"},
      {kKeyAlreadyAssociated, "This key is already associated with an element of this collection"},
      {kNoCurrentRecord,
       "Either BOF or EOF is True, or the current record has been deleted. Requested operation "
       "requires a current record."},
      {12345, ""},  // a number the host does not know has no description
  };
  for (const auto& r : rows) {
    EXPECT_EQ(standard_description(r.number), r.description) << r.number;
    if (*r.description) {
      EXPECT_EQ(Error(r.number).description(), r.description);
    }
  }
}

}  // namespace
