// The host's conversion rules, one row per behaviour.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "automation/conversions.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/recordset.h"
#include "qk/string_array.h"
#include "test_support.h"

using namespace qk::automation;
using qk::testing::error_of;

// Rounding agrees with the processor's own to-nearest-even rounding everywhere: ties, the
// neighbours of ties, negative values, tiny and huge magnitudes.
TEST(Variant, RoundingMatchesTheProcessorsTiesToEven) {
  std::vector<double> values = {0.0,
                                -0.0,
                                0.5,
                                -0.5,
                                1.5,
                                2.5,
                                -2.5,
                                0.49999999999999994,
                                -0.49999999999999994,
                                4503599627370495.5,
                                4503599627370497.0,
                                1e300,
                                -1e-300,
                                std::nextafter(2.5, 3.0),
                                std::nextafter(2.5, 2.0),
                                std::numeric_limits<double>::infinity(),
                                2147483647.5};
  for (int i = -4000; i <= 4000; ++i) values.push_back(i / 8.0 + (i % 3) * 1e-9);
  for (double x = 1; x < 1e18; x *= 3.7) values.push_back(x + 0.5), values.push_back(-x - 0.5);
  for (double v : values) {
    double r = round_half_even(v);
    EXPECT_EQ(r, std::nearbyint(v)) << v;
    EXPECT_EQ(std::signbit(r), std::signbit(std::nearbyint(v))) << v;
  }
  EXPECT_TRUE(std::isnan(round_half_even(std::nan(""))));
}

TEST(Variant, ToInt16RoundsTiesToEvenAndChecksRange) {
  struct Row {
    Variant in;
    int expected;  // or the error number when error != 0
    long error;
  } rows[] = {
      {2.5, 2, 0},  // tie goes to the even neighbour
      {3.5, 4, 0},
      {-2.5, -2, 0},
      {0.5, 0, 0},
      {1.5, 2, 0},
      {32767.4, 32767, 0},
      {32767.5, 0, kOverflow},  // rounds to 32768 first
      {-32768.5, -32768, 0},    // rounds to the even -32768: no overflow
      {-32769.0, 0, kOverflow},
      {Variant("12"), 12, 0},
      {Variant(" 12 "), 12, 0},  // blanks around a number are allowed
      {Variant("12abc"), 0, kTypeMismatch},
      {Variant(""), 0, kTypeMismatch},
      {Variant("&h1A"), 26, 0},
      {Variant("&HFFFF"), -1, 0},  // four hex digits are a 16-bit value
      {Variant("1e3"), 1000, 0},
      {Variant(true), -1, 0},  // True is -1
      {Variant(), 0, 0},       // Empty is 0
      {Variant::null(), 0, kInvalidUseOfNull},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.in.is_string() ? r.in.to_string() : std::to_string(r.expected));
    if (r.error) {
      EXPECT_EQ(error_of([&] { r.in.to_int16(); }), r.error);
    } else {
      EXPECT_EQ(r.in.to_int16(), r.expected);
    }
  }
}

TEST(Variant, ToInt32Edges) {
  EXPECT_EQ(Variant(2147483647.4).to_int32(), 2147483647);
  EXPECT_EQ(error_of([] { Variant(2147483647.5).to_int32(); }), kOverflow);
  EXPECT_EQ(Variant(-2147483648.5).to_int32(), INT32_MIN);  // even neighbour
  EXPECT_EQ(Variant("&HFFFFFFFF").to_int32(), -1);
  EXPECT_EQ(Variant("&H10000").to_int32(), 65536);
  EXPECT_EQ(Variant(static_cast<int16_t>(-7)).to_int32(), -7);
  EXPECT_EQ(error_of([] { Variant("abc").to_int32(); }), kTypeMismatch);
}

TEST(Variant, ToStringAndBool) {
  EXPECT_EQ(Variant(0.1 + 0.2).to_string(), "0.3");  // 15 significant digits
  EXPECT_EQ(Variant(12.5).to_string(), "12.5");
  EXPECT_EQ(Variant(1e15).to_string(), "1E+15");
  EXPECT_EQ(Variant(0.00001).to_string(), "1E-05");
  EXPECT_EQ(Variant(123456789012345.0).to_string(), "123456789012345");
  EXPECT_EQ(Variant(-3).to_string(), "-3");
  EXPECT_EQ(Variant(true).to_string(), "True");
  EXPECT_EQ(Variant().to_string(), "");
  EXPECT_EQ(error_of([] { Variant::null().to_string(); }), kInvalidUseOfNull);
  EXPECT_TRUE(Variant("true").to_bool());
  EXPECT_FALSE(Variant("0").to_bool());
  EXPECT_TRUE(Variant(-1).to_bool());
  EXPECT_EQ(error_of([] { Variant("yes").to_bool(); }), kTypeMismatch);
}

TEST(Variant, LeadingNumber) {
  struct Row {
    const char* in;
    double out;
  } rows[] = {
      {"12abc", 12},   {"", 0},     {"  7", 7}, {"-5x", -5},    {"+3", 3},  {".5", 0.5},
      {"1.5e3", 1500}, {"1e", 1},   {"1e+", 1}, {"2.5.1", 2.5}, {"abc", 0}, {"&H1A", 26},
      {"&o17", 15},    {"&hZZ", 0}, {"3 4", 3}, {"1D2", 100},  // D also introduces an exponent
  };
  for (const auto& r : rows) EXPECT_DOUBLE_EQ(leading_number(r.in), r.out) << r.in;
}

TEST(Variant, FormatDigitsNeverTruncates) {
  struct Row {
    Variant v;
    const char* pattern;
    const char* out;
  } rows[] = {
      {5, "000", "005"},
      {1234, "000", "1234"},  // never cut
      {-5, "00", "-05"},
      {Variant("7"), "00", "07"},
      {Variant("abc"), "00", "abc"},  // not a number: the text itself
      {2.5, "00", "03"},              // Format rounds halves away from zero
      {0, "0", "0"},
      {Variant(), "00", ""},
  };
  for (const auto& r : rows) EXPECT_EQ(format_digits(r.v, r.pattern), r.out) << r.out;
}

TEST(Variant, ArraysRaiseSubscriptErrors) {
  auto a = std::make_shared<VariantArray>(std::vector<std::pair<long, long>>{{1, 3}, {0, 7}});
  a->at(1, 0) = 1;
  EXPECT_TRUE(a->at(1, 0).equals_number(1));
  EXPECT_TRUE(a->at(3, 7).equals_number(0));  // an unset element is Empty, equal to 0
  EXPECT_EQ(error_of([&] { a->at(4, 0); }), kSubscriptOutOfRange);
  EXPECT_EQ(error_of([&] { a->at(1, 8); }), kSubscriptOutOfRange);
  EXPECT_EQ(error_of([&] { a->at(1); }), kSubscriptOutOfRange);
  EXPECT_FALSE(Variant::null().equals_number(0));  // Null is never equal
  EXPECT_EQ(error_of([] { Variant("x").equals_number(0); }), kTypeMismatch);
}

TEST(StringArray, UnallocatedHasNoBounds) {
  StringArray a;
  EXPECT_EQ(error_of([&] { a.upper_bound(); }), kSubscriptOutOfRange);
  a.redim_preserve(2, 1);
  EXPECT_EQ(a.lower_bound(), 1);
  EXPECT_EQ(a.upper_bound(), 2);
  EXPECT_EQ(error_of([&] { a[0]; }), kSubscriptOutOfRange);
}

TEST(Factory, CreatesRegisteredAndRefusesUnknown) {
  struct Thing : Object {};
  register_component("Test.Thing", [] { return std::make_shared<Thing>(); });
  EXPECT_NE(std::dynamic_pointer_cast<Thing>(create_object("test.thing")), nullptr);
  unregister_component("Test.Thing");
  try {
    create_object("Test.Thing");
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), kCannotCreateObject);
    // The standard text, then what is missing and where to look.
    EXPECT_EQ(e.description(),
              "ActiveX component can't create object: nothing is registered as \"Test.Thing\" "
              "(a host registers the companions before creating classes, see qk/host.h)");
  }
}

TEST(Recordset, ContractMembers) {
  MemoryRecordset rs({"A", "b"});
  rs.add_row({1, "x"});
  rs.add_row({2, "y"});
  EXPECT_EQ(rs.RecordCount(), 2);
  EXPECT_EQ(rs("a").to_int32(), 1);  // names are case-insensitive
  rs.MoveNext();
  EXPECT_EQ(rs.Fields("B").to_string(), "y");
  rs.MoveNext();
  EXPECT_TRUE(rs.Eof());
  EXPECT_EQ(error_of([&] { rs.Fields("A"); }), kNoCurrentRecord);
  rs.AbsolutePosition(1);
  EXPECT_EQ(rs("A").to_int32(), 1);
  EXPECT_EQ(error_of([&] { rs.Fields("C"); }), kItemNotFound);
  EXPECT_EQ(error_of([&] { rs.AbsolutePosition(3); }), kNoCurrentRecord);
}

// The classes keep the configured lines as given when written: a caller that changes its own
// array afterwards changes nothing in the class, and what the class hands back is a copy too.
TEST(ConfiguredLines, StoredAsAtTheWrite) {
  auto lines = std::make_shared<VariantArray>(std::vector<std::pair<long, long>>{{0, 1}, {0, 7}});
  lines->at(1, 0) = 1;
  Variant given(lines);
  Variant kept = given.copied();
  lines->at(1, 0) = 0;
  EXPECT_EQ(kept.to_array()->at(1, 0).to_int32(), 1);
  EXPECT_EQ(given.to_array()->at(1, 0).to_int32(), 0);
  Variant number(5);
  EXPECT_EQ(number.copied().to_int32(), 5);  // anything but an array is itself
}
