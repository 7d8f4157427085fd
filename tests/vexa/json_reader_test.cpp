#include "vexa/json_reader.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/support/in_pieces.h"
#include "vexa/json_dump.h"

namespace {

/// What the text reads as, written again; or the error.
std::string read_in(const Pieces& pieces) {
  JSON_Reader reader;
  bool good = true;
  for (const auto& piece : pieces) good = good && reader.read(piece.data(), piece.size());
  return good && reader.end() ? JSON_Dump(reader.value()).str() : reader.error();
}

TEST(JsonReaderTest, TextsReadTheSameHoweverTheyAreCut) {
  const std::string refused = "a value is too deep, or a number too large";
  const std::string deep = std::string(124, '[') + std::string(124, ']');
  const std::pair<std::string, std::string> cases[] = {
      // A real has a point or an exponent, whatever the number was written like.
      {"-0", "0"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"9223372036854775808", "9223372036854775808"},
      {"18446744073709551615", "18446744073709551615"},
      {"18446744073709551616", "18446744073709551616.0"},
      {"-9223372036854775809", "-9223372036854775808.0"},
      {"-0.0", "-0.0"},
      {"1E+2", "100.0"},
      {"9007199254740993.0", "9007199254740992.0"},
      {"1.7976931348623157e308", "1.7976931348623157e+308"},
      {"5e-324", "5e-324"},
      {"-1e-400", "-0.0"},
      {R"("\u00e4\ud83d\ude00\u0000/")", "\"\u00e4\U0001F600\\u0000/\""},
      {"\"\\udc00\"", "\"\uFFFD\uFFFD\uFFFD\""},
      {R"([[],{},[1,[2.0,{"a":[false]}]],""])", R"([[],{},[1,[2.0,{"a":[false]}]],""])"},
      {R"({"b":{"y":[1]},"a":null,"b":{"x":2,"":{"k":3}}})",
       R"({"a":null,"b":{"":{"k":3},"x":2}})"},
      {deep, deep},
      {'[' + deep + ']', refused},
      {"[1,1e400]", refused},
      {"", "parse error: premature EOF"},
      {"[] []", "parse error: trailing garbage"},
      {"[1,]", "parse error: unallowed token at this point in JSON text"},
      {"/**/ 1", "lexical error: probable comment found in input text, comments are not enabled."},
  };
  for (const auto& c : cases) EXPECT_EQ(c.second, however_cut(c.first, read_in));
}

}  // namespace
