#include "vexa/natoi.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

struct Case {
  const char* text;
  long long value;
  int error;
  int consumed;
};

template <typename Integer>
void expect(const Case& c) {
  SCOPED_TRACE(c.text);
  // Once up to its terminator, once with an end that more digits follow.
  std::string text = c.text;
  const size_t length = text.size();
  for (const bool bounded : {false, true}) {
    if (bounded) text += "9999";
    char* const begin = &text[0];
    char* stop = nullptr;
    EXPECT_EQ(static_cast<Integer>(c.value),
              natoi<Integer>(begin, bounded ? begin + length : nullptr, &stop));
    EXPECT_EQ(c.error, errno);
    EXPECT_EQ(c.consumed, stop - begin);
  }
}

TEST(NatoiTest, TextsAreReadStrictlyUpToTheLimitsOfTheirType) {
  const Case cases[] = {
      {"000127", 127, 0, 6},   {"+12x", 12, 0, 3},    {"", 0, EINVAL, 0},
      {" 1", 0, EINVAL, 0},    {"+-1", 0, EINVAL, 0}, {"1280", 127, ERANGE, 2},
      {"128", 127, ERANGE, 2}, {"-128", -128, 0, 4},  {"-129", 127, ERANGE, 3},
  };
  for (const Case& c : cases) expect<std::int8_t>(c);
  for (const Case& c : {Case{"255", 255, 0, 3}, {"256", 255, ERANGE, 2}, {"-0", 0, EINVAL, 0}}) {
    expect<std::uint8_t>(c);
  }
  expect<std::int64_t>({"-9223372036854775808", INT64_MIN, 0, 20});
  EXPECT_EQ(0, natoi<int>(static_cast<const char*>(nullptr)));
  EXPECT_EQ(EINVAL, errno);
}

}  // namespace
