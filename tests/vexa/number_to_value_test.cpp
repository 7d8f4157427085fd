#include "vexa/number_to_value.h"

#include <gtest/gtest.h>

#include <string>

#include "vexa/json_dump.h"

namespace {

json_spirit::Value value_of(const std::string& text) {
  return number_to_value(text.data(), text.size());
}

// What is written tells the kind: a real has a point or an exponent.
TEST(NumberToValueTest, NumbersAreWrittenAsTheyWereUnderstoodAndReadBackTheSame) {
  const std::pair<std::string, const char*> cases[] = {
      {"-0", "0"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"9223372036854775808", "9223372036854775808"},
      {"18446744073709551615", "18446744073709551615"},
      {"18446744073709551616", "18446744073709551616.0"},
      {"-9223372036854775809", "-9223372036854775808.0"},
      {"123456789012345678901234567890", "1.2345678901234568e+29"},
      {"-0.0", "-0.0"},
      {"1E+2", "100.0"},
      {"1e5", "1e+05"},
      {"9007199254740993.0", "9007199254740992.0"},
      {"1.7976931348623157e308", "1.7976931348623157e+308"},
      {"5e-324", "5e-324"},
      {"-1e-400", "-0.0"},
      {"1e400", "null"},
      {std::string(400, '9'), "null"},
      {"", "null"},
      {"-", "null"},
      {"nan", "null"},
      {"0x10", "null"},
  };
  for (const auto& c : cases) {
    const json_spirit::Value value = value_of(c.first);
    const std::string text = JSON_Dump(value).str();
    EXPECT_EQ(c.second, text) << c.first;
    EXPECT_EQ(value, value_of(text));
  }
  EXPECT_EQ(json_spirit::Value(1.5), number_to_value("1.59", 3));
}

}  // namespace
