#include "json_rpc/json_rpc_parser.h"

#include <gtest/gtest.h>

#include "tests/support/in_pieces.h"
#include "tests/support/log_capture.h"

namespace {

/// Notes each member event as "bit/callback" with its text; can refuse one, or nest a handler in one.
class Recorder : public JSON_RPC_Parser {
public:
  bool handle_key_i(unsigned int key, const char* text, std::size_t length) override {
    events += std::to_string(key) + '/' + std::to_string(callback_type());
    if (text != nullptr) events += ':' + std::string(text, length);
    if (text == nullptr && length != 0) events += ":1";
    events += ' ';
    const bool ended = callback_type() == CB_END_MAP || callback_type() == CB_END_ARRAY;
    if (nested != nullptr && key == nest_in) handler_ = ended ? nullptr : nested;
    return !(key == refuse && ended);
  }

  std::string events;
  unsigned int refuse = 1u << 31;
  YAJL_Handler* nested = nullptr;
  unsigned int nest_in = PARAMS_BIT;
};

struct Outcome {
  bool accepted;
  int error;
  bool refused;
  std::string events;

  friend bool operator==(const Outcome& a, const Outcome& b) {
    return a.accepted == b.accepted && a.error == b.error && a.refused == b.refused &&
           a.events == b.events;
  }
  friend std::ostream& operator<<(std::ostream& out, const Outcome& o) {
    return out << (o.accepted ? "accepted" : "failed") << " err=" << o.error << " refused "
               << o.refused << ' ' << o.events;
  }
};

Outcome feed(Recorder& parser, const Pieces& pieces) {
  bool accepted = true;
  for (const auto& piece : pieces) accepted = accepted && parser.read(piece.data(), piece.size());
  accepted = accepted && parser.read(nullptr, 0);
  return {accepted, parser.error(), parser.refused(), parser.events};
}

Outcome parse(const Pieces& pieces) {
  Recorder parser;
  EXPECT_TRUE(parser.open());
  return feed(parser, pieces);
}

class JsonRpcParserTest : public ::testing::Test {
protected:
  Log_Capture log_;
};

TEST_F(JsonRpcParserTest, MembersOfAllowedTypesAreReported) {
  using namespace std::string_literals;
  const std::pair<const char*, std::string> cases[] = {
      {R"( {"jsonrpc":"2.0","method":"m","id":7} )", "0/7 1/6:2.0 8/6:m 2/5:7 0/9 "},
      {R"({"id":null,"params":null,"result":null})", "0/7 2/1 4/1 16/1 0/9 "},
      {R"({"params":true,"result":false})", "0/7 4/2:1 16/2 0/9 "},
      {R"({"params":-1.5e3,"result":0,"id":"a\u0000b"})",
       "0/7 4/5:-1.5e3 16/5:0 2/6:a\0b 0/9 "s},
      {R"({"params":"p","result":"","jsonrpc":""})", "0/7 4/6:p 16/6: 1/6: 0/9 "},
      // A container is reported when it opens and when it has closed, and nothing that lies inside.
      {R"({"params":{"a":{"b":1},"c":"x","id":[true]}})", "0/7 4/7 4/9 0/9 "},
      {R"({"result":[[1],{"code":null}],"params":[]})", "0/7 16/10 16/11 4/10 4/11 0/9 "},
      {R"({"error":{"code":1,"message":"x","data":{"k":[1]}}})",
       "0/7 32/7 64/5:1 128/6:x 256/7 256/9 32/9 0/9 "},
      {R"({"error":{"data":null,"data":true,"data":2,"data":"s","data":[[{}]]}})",
       "0/7 32/7 256/1 256/2:1 256/5:2 256/6:s 256/10 256/11 32/9 0/9 "},
      {R"({"error":{}})", "0/7 32/7 32/9 0/9 "},
      {"{}", "0/7 0/9 "},
      // Kept: these two are whole texts that say nothing.
      {"7 ", ""},
      {R"("text")", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ((Outcome{true, 0, false, c.second}), however_cut(c.first, parse));
  }
  EXPECT_EQ(0u, log_.size());
}

TEST_F(JsonRpcParserTest, WhatIsNoMessageIsRefused) {
  const std::string deep(200, '[');
  const struct {
    std::string text;
    int error;
    const char* events;
    const char* report;  // after "err="
  } cases[] = {
      {R"({"jsonrpc":"2.0","method":"m","foo":1})", 5, "0/7 1/6:2.0 8/6:m ",
       "5, level=1, key=0, parent_key=0\n"},
      {R"([{"jsonrpc":"2.0","method":"m"}])", 3, "", "3, level=0, key=0, parent_key=0\n"},
      {"null", 3, "", "3, level=0, key=0, parent_key=0\n"},
      {"true", 3, "", "3, level=0, key=0, parent_key=0\n"},
      {R"({"id":true})", 5, "0/7 ", "5, level=1, key=2, parent_key=0\n"},
      {R"({"id":{}})", 5, "0/7 ", "5, level=1, key=2, parent_key=0\n"},
      {R"({"id":[]})", 5, "0/7 ", "5, level=1, key=2, parent_key=0\n"},
      {R"({"jsonrpc":2})", 5, "0/7 ", "5, level=1, key=1, parent_key=0\n"},
      {R"({"method":null})", 5, "0/7 ", "5, level=1, key=8, parent_key=0\n"},
      {R"({"error":null})", 5, "0/7 ", "5, level=1, key=32, parent_key=0\n"},
      {R"({"error":[]})", 5, "0/7 ", "5, level=1, key=32, parent_key=0\n"},
      {R"({"error":"s"})", 5, "0/7 ", "5, level=1, key=32, parent_key=0\n"},
      {R"({"Id":1})", 5, "0/7 ", "5, level=1, key=0, parent_key=0\n"},
      {R"({"method\u0000":"m"})", 5, "0/7 ", "5, level=1, key=0, parent_key=0\n"},
      {R"({"code":1})", 5, "0/7 ", "5, level=1, key=0, parent_key=0\n"},
      {R"({"error":{"code":1,"other":2}})", 5, "0/7 32/7 64/5:1 ",
       "5, level=2, key=0, parent_key=32\n"},
      {R"({"error":{"code":"1"}})", 5, "0/7 32/7 ", "5, level=2, key=64, parent_key=32\n"},
      {R"({"error":{"message":1}})", 5, "0/7 32/7 ", "5, level=2, key=128, parent_key=32\n"},
      {R"({"error":{"message":{}}})", 5, "0/7 32/7 ", "5, level=2, key=128, parent_key=32\n"},
      {R"({"params":)" + deep, 6, "0/7 4/10 ", "6, level=125, key=0, parent_key=0\n"},
      {R"({"error":{"data":)" + deep, 6, "0/7 32/7 256/10 ",
       "6, level=126, key=0, parent_key=0\n"},
  };
  for (const auto& c : cases) {
    log_.clear();
    EXPECT_EQ((Outcome{false, c.error, true, c.events}), parse(cut_text(c.text, c.text.size(), 1)));
    const std::vector<std::string> lines = log_.texts(LM_ERROR);
    ASSERT_EQ(1u, lines.size()) << c.text;
    EXPECT_EQ(0u, lines[0].find("Failed to parse JSON-RPC: parse error: client cancelled parse via "
                                "callback return value\n"));
    const std::size_t err = lines[0].rfind("err=");
    EXPECT_EQ(c.report, lines[0].substr(err + 4)) << c.text;
    however_cut(c.text, parse);
  }
}

TEST_F(JsonRpcParserTest, WhatIsNoJsonFailsWithoutBeingRefused) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "parse error: premature EOF"},
      {R"({"id":1)", "parse error: premature EOF"},
      {R"({"method":"m")", "parse error: premature EOF"},
      {R"({"id":1}})", "parse error: trailing garbage"},
      {R"({"id":1} {"id":2})", "parse error: trailing garbage"},
      {"/* no */ {}", "lexical error: probable comment found in input text, comments are not "
                        "enabled."},
      {"{\"id\":\"\xFF\"}", "lexical error: invalid bytes in UTF8 string."},
      {"{id:1}", "lexical error: invalid char in json text."},
  };
  for (const auto& c : cases) {
    log_.clear();
    const Outcome outcome = however_cut(c.first, parse);
    EXPECT_FALSE(outcome.accepted || outcome.refused || outcome.error != 0) << c.first;
    EXPECT_EQ(log_.size(), log_.count(std::string("Failed to parse JSON-RPC: ") + c.second));
  }
}

TEST_F(JsonRpcParserTest, ValuesAreTakenUpToTheSameDepthEverywhere) {
  for (const auto& [before, behind] :
       {std::pair<std::string, std::string>(R"({"params":)", "}"),
        std::pair<std::string, std::string>(R"({"error":{"data":)", "}}")}) {
    for (const std::size_t depth : {124, 125}) {
      const std::string text =
          before + std::string(depth, '[') + std::string(depth, ']') + behind;
      EXPECT_EQ(depth == 124, however_cut(text, parse).accepted);
    }
  }
}

TEST_F(JsonRpcParserTest, ARefusalAtAnEndIsLoggedByItsPlace) {
  const struct {
    const char* text;
    unsigned int refuse;
    const char* line;
  } cases[] = {
      {R"({"id":1})", 0, "Failed to handle end of map.\n"},
      {R"({"params":{}})", JSON_RPC_Parser::PARAMS_BIT, "Failed to handle end of internal map.\n"},
      {R"({"error":{"data":{}}})", JSON_RPC_Parser::DATA_BIT,
       "Failed to handle end of error data map.\n"},
      {R"({"params":[]})", JSON_RPC_Parser::PARAMS_BIT, nullptr},
      {R"({"error":{"data":[]}})", JSON_RPC_Parser::DATA_BIT, nullptr},
  };
  for (const auto& c : cases) {
    log_.clear();
    Recorder parser;
    parser.refuse = c.refuse;
    parser.open();
    EXPECT_FALSE(feed(parser, cut_text(c.text, 100, 100)).accepted) << c.text;
    EXPECT_EQ(c.line != nullptr ? 2u : 1u, log_.size());
    EXPECT_TRUE(c.line == nullptr || log_.contains(LM_ERROR, c.line));
  }
}

/// Counts what it gets.
class Counter : public YAJL_Handler {
public:
  bool handle_null_i() override { return count('n'); }
  bool handle_boolean_i(bool) override { return count('b'); }
  bool handle_number_i(const char*, std::size_t) override { return count('1'); }
  bool handle_string_i(const char*, std::size_t) override { return count('s'); }
  bool handle_start_map_i() override { return count('{'); }
  bool handle_map_key_i(const char*, std::size_t) override { return count('k'); }
  bool handle_end_map_i() override { return count('}'); }
  bool handle_start_array_i() override { return count('['); }
  bool handle_end_array_i() override { return count(']'); }
  std::string seen;

private:
  bool count(char event) {
    seen += event;
    return event != 'n';
  }
};

TEST_F(JsonRpcParserTest, ANestedHandlerGetsTheEventsAndLevelsAreKept) {
  Counter counter;
  Recorder parser;
  parser.nested = &counter;
  parser.open();
  const std::string text = R"({"params":{"a":[1,{}],"id":true,"b":"s"},"id":5})";
  EXPECT_EQ((Outcome{true, 0, false, "0/7 4/7 4/9 2/5:5 0/9 "}),
            feed(parser, cut_text(text, 1, 1)));
  EXPECT_EQ("k[1{}]kbks}", counter.seen);
  EXPECT_EQ(unsigned(JSON_RPC_Parser::PARAMS_BIT | JSON_RPC_Parser::ID_BIT), parser.members());

  counter.seen.clear();
  parser.open();
  EXPECT_EQ(0u, parser.members());
  EXPECT_FALSE(feed(parser, cut_text(R"({"params":[1,null,2]})", 100, 100)).accepted);
  EXPECT_EQ("1n", counter.seen);
  EXPECT_TRUE(parser.refused());
  EXPECT_EQ(0, parser.error()) << "the handler refused, not the parser";
  EXPECT_EQ(17u, parser.consumed());

  parser.nest_in = 0;  // the depth is bounded where a handler takes all
  parser.open();
  const std::string deep = '{' + std::string("\"a\":") + std::string(1000000, '[');
  EXPECT_FALSE(feed(parser, cut_text(deep, deep.size(), 1)).accepted);
  EXPECT_EQ(6, parser.error());
}

TEST_F(JsonRpcParserTest, AClosedParserReadsNothingAndOpeningForgets) {
  Recorder parser;
  EXPECT_FALSE(parser.is_open() || parser.read("{}", 2) || parser.read(nullptr, 0));
  EXPECT_EQ(0u, log_.size());
  parser.open();
  EXPECT_FALSE(parser.read("[", 1));
  EXPECT_EQ(3, parser.error());
  EXPECT_EQ(YAJL_Handler::CB_START_ARRAY, parser.callback_type());
  EXPECT_TRUE(parser.open());
  EXPECT_TRUE(parser.error() == 0 && !parser.refused());
  EXPECT_EQ(YAJL_Handler::CB_NONE, parser.callback_type());
  EXPECT_TRUE(parser.read("{\"id\":1}", 8) && parser.read(nullptr, 0));
  parser.close();
  parser.close();
  EXPECT_FALSE(parser.read("{", 1));
  EXPECT_FALSE(parser.handle_any(~0u, nullptr, 0) || parser.handle_end_map_i() ||
               parser.handle_end_array_i());
  EXPECT_EQ(3, parser.error());
}

}  // namespace
