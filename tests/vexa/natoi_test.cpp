#include "vexa/natoi.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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
  const char* stop = nullptr;
  EXPECT_EQ(static_cast<Integer>(c.value), natoi<Integer>(c.text, nullptr, &stop));
  EXPECT_EQ(c.error, errno);
  EXPECT_EQ(c.consumed, stop - c.text);

  // The same text with more digits behind its end, which must not be read.
  std::string longer = std::string(c.text) + "9999";
  char* const begin = &longer[0];
  char* end = nullptr;
  EXPECT_EQ(static_cast<Integer>(c.value),
            natoi<Integer>(begin, begin + std::strlen(c.text), &end));
  EXPECT_EQ(c.error, errno);
  EXPECT_EQ(c.consumed, end - begin);
}

TEST(NatoiTest, SignedTextsAreReadStrictly) {
  const Case cases[] = {
      {"0", 0, 0, 1},           {"+12x", 12, 0, 3},       {"-12 3", -12, 0, 3},
      {"", 0, EINVAL, 0},       {" 1", 0, EINVAL, 0},     {"-", 0, EINVAL, 0},
      {"+-1", 0, EINVAL, 0},    {"abc", 0, EINVAL, 0},    {"127", 127, 0, 3},
      {"128", 127, ERANGE, 2},  {"-128", -128, 0, 4},     {"-129", 127, ERANGE, 3},
      {"1280", 127, ERANGE, 2}, {"000000127", 127, 0, 9},
  };
  for (const Case& c : cases) expect<std::int8_t>(c);
}

TEST(NatoiTest, UnsignedTextsTakeNoMinus) {
  const Case cases[] = {{"255", 255, 0, 3}, {"256", 255, ERANGE, 2}, {"-0", 0, EINVAL, 0}};
  for (const Case& c : cases) expect<std::uint8_t>(c);
}

TEST(NatoiTest, TheWidestTypeKeepsItsLimits) {
  EXPECT_EQ(INT64_MIN, natoi<std::int64_t>("-9223372036854775808"));
  EXPECT_EQ(0, errno);
  EXPECT_EQ(INT64_MAX, natoi<std::int64_t>("-9223372036854775809"));
  EXPECT_EQ(0, natoi<int>(static_cast<const char*>(nullptr)));
  EXPECT_EQ(EINVAL, errno);
}

}  // namespace
