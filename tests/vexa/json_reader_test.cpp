#include "vexa/json_reader.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include "tests/support/in_pieces.h"
#include "tests/support/log_capture.h"
#include "vexa/json_dump.h"
#include "vexa/json_limits.h"
#include "vexa/json_parser.h"
#include "vexa/yajl_handler.h"

using json_spirit::Value;

namespace {

/// What the text reads as, written again; or the error.
std::string read_in(const Pieces& pieces) {
  JSON_Reader reader;
  for (const auto& piece : pieces) {
    if (!reader.read(piece.data(), piece.size())) return "error: " + reader.error();
  }
  return reader.end() ? JSON_Dump(reader.value()).str() : "error: " + reader.error();
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(JsonReaderTest, TextsReadTheSameHoweverTheyAreCut) {
  const std::string refused = "error: a value is too deep, or a number too large";
  const std::pair<std::string, std::string> cases[] = {
      {" null ", "null"},
      {"true", "true"},
      {"12", "12"},
      {"18446744073709551615", "18446744073709551615"},
      {R"("\u00e4\ud83d\ude00\u0000/")", "\"\u00e4\U0001F600\\u0000/\""},
      {"\"\\ud800x\"", "\"?x\""},
      {"\"\\udc00\"", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
      {"{}", "{}"},
      {R"([[],{},[1,[2.0,{"a":[false]}]],""])", R"([[],{},[1,[2.0,{"a":[false]}]],""])"},
      {R"({"b":{"y":1,"x":[]},"a":null,"b":{"x":2,"":{"k":3}}})", R"({"a":null,"b":{"":{"k":3},"x":2}})"},
      {nested(vexa::max_value_depth), nested(vexa::max_value_depth)},
      {nested(vexa::max_value_depth + 1), refused},
      {"[1,1e400]", refused},
      {R"({"a":1e-400})", R"({"a":0.0})"},
      {"", "error: parse error: premature EOF"},
      {"{\"a\":", "error: parse error: premature EOF"},
      {"[] []", "error: parse error: trailing garbage"},
      {"[1,]", "error: parse error: unallowed token at this point in JSON text"},
      {"// no\n1", "error: lexical error: probable comment found in input text, comments are not "
                   "enabled."},
  };
  for (const auto& c : cases) EXPECT_EQ(c.second, however_cut(c.first, read_in));
}

TEST(JsonReaderTest, AMillionOpenBracketsAreRefusedEarly) {
  const std::string text(1000000, '[');
  Value value;
  EXPECT_FALSE(json_read(text.data(), text.size(), value));
}

TEST(JsonParserTest, TakesEventsOnlyWhereAValueIsExpected) {
  JSON_Parser parser;
  EXPECT_FALSE(parser.handle_null_i());
  Value scalar("old");
  parser.result(&scalar);
  EXPECT_FALSE(parser.handle_map_key_i("k", 1));
  EXPECT_FALSE(parser.handle_end_map_i());
  EXPECT_TRUE(parser.handle_number_i("7", 1));
  EXPECT_EQ(Value(7), scalar);
  EXPECT_FALSE(parser.handle_boolean_i(true)) << "it is complete";

  // A container counts as just opened, and a new target ends the old one in the middle.
  Value object{json_spirit::Object()};
  Value array{json_spirit::Array()};
  parser.result(&object);
  EXPECT_FALSE(parser.handle_string_i("no key", 6));
  EXPECT_TRUE(parser.handle_map_key_i("k", 1) && parser.handle_start_array_i());
  parser.result(&array);
  EXPECT_TRUE(parser.handle_string_i("a\0b", 3) && parser.handle_end_array_i());
  EXPECT_FALSE(parser.handle_null_i());
  EXPECT_EQ(Value(json_spirit::Array{Value(std::string("a\0b", 3))}), array);
  parser.result(nullptr);
  EXPECT_FALSE(parser.handle_start_map_i());
}

/// Throws at the event that it is told to.
class Thrower : public YAJL_Handler {
public:
  bool handle_null_i() override { throw std::runtime_error("from null"); }
  bool handle_string_i(const char*, std::size_t) override { throw 5; }
  bool handle_end_array_i() override { return false; }
};

TEST(YajlHandlerTest, ExceptionsStopTheParseAndGoNoFurther) {
  const struct {
    const char* text;
    YAJL_Handler::Callback_Type type;
    std::vector<std::string> lines;
  } cases[] = {
      {"[null,1]", YAJL_Handler::CB_NULL, {"A handler of parse events failed: from null\n"}},
      {"[\"\",1]",
       YAJL_Handler::CB_STRING,
       {"A handler of parse events failed with an unknown exception.\n"}},
      {"[[true],1]", YAJL_Handler::CB_END_ARRAY, {}},
  };
  for (const auto& c : cases) {
    Log_Capture log;
    Thrower thrower;
    const yajl_handle handle = yajl_alloc(get_yajl_default_callbacks(), nullptr,
                                          static_cast<YAJL_Handler*>(&thrower));
    const std::string text = c.text;
    EXPECT_EQ(yajl_status_client_canceled,
              yajl_parse(handle, reinterpret_cast<const unsigned char*>(text.data()), text.size()));
    yajl_free(handle);
    EXPECT_EQ(c.type, thrower.callback_type());
    EXPECT_EQ(c.lines, log.texts(LM_ERROR));
  }
}

}  // namespace
