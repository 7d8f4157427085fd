#include "vexa/number_to_value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "vexa/json_dump.h"

using json_spirit::Value;

namespace {

Value value_of(const std::string& text) { return number_to_value(text.data(), text.size()); }

TEST(NumberToValueTest, IntegersStayExactAsLongAsSixtyFourBitsHoldThem) {
  const struct {
    const char* text;
    Value value;
    bool is_uint64;
  } cases[] = {{"0", 0, false},
               {"-0", 0, false},
               {"-1", -1, false},
               {"9223372036854775807", std::numeric_limits<std::int64_t>::max(), false},
               {"-9223372036854775808", std::numeric_limits<std::int64_t>::min(), false},
               {"9223372036854775808", std::uint64_t(1) << 63, true},
               {"18446744073709551615", std::numeric_limits<std::uint64_t>::max(), true},
               {"18446744073709551616", 18446744073709551616.0, false},
               {"-9223372036854775809", -9223372036854775808.0, false},
               {"123456789012345678901234567890", 123456789012345678901234567890.0, false},
               {"1.0", 1.0, false},
               {"1e2", 100.0, false},
               {"1E+2", 100.0, false},
               {"-12.5e-1", -1.25, false},
               {"5e-324", 5e-324, false},
               {"1.7976931348623157e308", 1.7976931348623157e308, false},
               {"1e-400", 0.0, false},
               {"-1e-400", -0.0, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Value value = value_of(c.text);
    EXPECT_EQ(c.value, value);
    EXPECT_EQ(c.is_uint64, value.is_uint64());
    if (c.value.type() == json_spirit::real_type) {
      EXPECT_EQ(std::signbit(c.value.get_real()), std::signbit(value.get_real()));
    }
  }
}

TEST(NumberToValueTest, WhatNoDoubleHoldsAndWhatIsNoNumberIsNull) {
  const std::string digits(400, '9');
  for (const std::string& text :
       {std::string("1e400"), std::string("-1e400"), digits, std::string(), std::string("-"),
        std::string("nan"), std::string("inf"), std::string("-infinity"), std::string("1x"),
        std::string("0x10")}) {
    EXPECT_TRUE(value_of(text).is_null()) << text;
  }
}

TEST(NumberToValueTest, TheTextEndsWhereItsLengthSays) {
  EXPECT_EQ(Value(12), number_to_value("1234", 2));
  EXPECT_EQ(Value(1.5), number_to_value("1.59", 3));
}

TEST(NumberToValueTest, RealsSurviveBeingWrittenAndReadAndStayReals) {
  const struct {
    double real;
    const char* text;
  } cases[] = {{0.1, "0.1"},      {1.0, "1.0"},
               {-0.0, "-0.0"},    {100000.0, "1e+05"},
               {2.5, "2.5"},      {1e22, "1e+22"},
               {5e-324, "5e-324"}, {1.7976931348623157e308, "1.7976931348623157e+308"},
               {1.0 / 3.0, "0.3333333333333333"},
               {-2.2250738585072014e-308, "-2.2250738585072014e-308"},
               {9007199254740993.0, "9007199254740992.0"}};
  for (const auto& c : cases) {
    const JSON_Dump dump{Value(c.real)};
    EXPECT_EQ(c.text, dump.str());
    const Value back = value_of(dump.str());
    ASSERT_EQ(json_spirit::real_type, back.type()) << c.text;
    EXPECT_EQ(c.real, back.get_real());
    EXPECT_EQ(std::signbit(c.real), std::signbit(back.get_real()));
  }
}

}  // namespace
