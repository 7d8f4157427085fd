#include "json_rpc/json_rpc_parser.h"

#include <gtest/gtest.h>

#include "tests/support/in_pieces.h"
#include "tests/support/log_capture.h"

namespace {

/// Notes each member event as "bit/callback" with its text.
class Recorder : public JSON_RPC_Parser {
public:
  bool handle_key_i(unsigned int key, const char* text, std::size_t length) override {
    events += std::to_string(key) + '/' + std::to_string(callback_type());
    if (text != nullptr) events += ':' + std::string(text, length);
    if (text == nullptr && length != 0) events += ":1";
    events += ' ';
    const bool ended = callback_type() == CB_END_MAP || callback_type() == CB_END_ARRAY;
    return !(key == refuse && ended);
  }

  std::string events;
  unsigned int refuse = ~0u;
};

/// How the whole text fares, and its events.
std::string feed(Recorder& parser, const Pieces& pieces) {
  bool accepted = true;
  for (const auto& piece : pieces) accepted = accepted && parser.read(piece.data(), piece.size());
  if (accepted && parser.read(nullptr, 0)) return "ok " + parser.events;
  return (parser.refused() ? "refused " : "no json ") + std::to_string(parser.error()) + ' ' +
         parser.events;
}

std::string parse(const Pieces& pieces) {
  Recorder parser;
  EXPECT_TRUE(parser.open());
  return feed(parser, pieces);
}

class JsonRpcParserTest : public ::testing::Test {
protected:
  Log_Capture log_;
};

TEST_F(JsonRpcParserTest, MembersAreReportedOrRefusedByNameAndType) {
  using namespace std::string_literals;
  std::string maps;
  for (int i = 0; i < 130; ++i) maps += "{\"a\":";
  const std::string arrays(130, '[');
  const struct {
    std::string text, outcome;
    std::string report;  // the end of the one line that a failure logs
  } cases[] = {
      {R"( {"jsonrpc":"2.0","method":"m","id":7} )", "ok 0/7 1/6:2.0 8/6:m 2/5:7 0/9 ", ""},
      {R"({"params":true,"result":false})", "ok 0/7 4/2:1 16/2 0/9 ", ""},
      {R"({"params":-1.5e3,"result":0,"id":"a\u0000b"})", "ok 0/7 4/5:-1.5e3 16/5:0 2/6:a\0b 0/9 "s,
       ""},
      // A container is reported when it opens and when it has closed, and nothing of its inside.
      {R"({"params":{"a":{"b":1},"c":"x","id":[true]}})", "ok 0/7 4/7 4/9 0/9 ", ""},
      {R"({"result":[[1],{"code":null}],"params":[]})", "ok 0/7 16/10 16/11 4/10 4/11 0/9 ", ""},
      {R"({"error":{"code":1,"message":"x","data":{"k":[1]},"data":true,"data":[[{}]]}})",
       "ok 0/7 32/7 64/5:1 128/6:x 256/7 256/9 256/2:1 256/10 256/11 32/9 0/9 ", ""},
      // Kept: whole texts that say nothing, unlike null and true.
      {"7 ", "ok ", ""},
      {"null", "refused 3 ", "callback=1, err=3, level=0, key=0, parent_key=0\n"},
      {"true", "refused 3 ", "callback=2, err=3, level=0, key=0, parent_key=0\n"},
      {R"([{"method":"m"}])", "refused 3 ", "callback=10, err=3, level=0, key=0, parent_key=0\n"},
      {R"({"method":"m","foo":1})", "refused 5 0/7 8/6:m ",
       "err=5, level=1, key=0, parent_key=0\n"},
      {R"({"id\u0000":1})", "refused 5 0/7 ", "err=5, level=1, key=0, parent_key=0\n"},
      {R"({"id":true})", "refused 5 0/7 ", "err=5, level=1, key=2, parent_key=0\n"},
      {R"({"jsonrpc":2})", "refused 5 0/7 ", "err=5, level=1, key=1, parent_key=0\n"},
      {R"({"method":null})", "refused 5 0/7 ", "err=5, level=1, key=8, parent_key=0\n"},
      {R"({"error":null})", "refused 5 0/7 ", "err=5, level=1, key=32, parent_key=0\n"},
      {R"({"error":{"other":2}})", "refused 5 0/7 32/7 ", "err=5, level=2, key=0, parent_key=32\n"},
      {R"({"error":{"code":""}})", "refused 5 0/7 32/7 ", "level=2, key=64, parent_key=32\n"},
      {R"({"params":)" + arrays, "refused 6 0/7 4/10 ", "err=6, level=125, key=0, parent_key=0\n"},
      {R"({"error":{"data":)" + maps, "refused 6 0/7 32/7 256/7 ",
       "err=6, level=126, key=0, parent_key=0\n"},
      {"", "no json 0 ", "err=0, level=0, key=0, parent_key=0\n"},
      {R"({"id":1}})", "no json 0 0/7 2/5:1 0/9 ", "err=0, level=0, key=0, parent_key=0\n"},
      {"{/**/}", "no json 0 0/7 ", "err=0, level=1, key=0, parent_key=0\n"},
      {"{\"\xFF", "no json 0 0/7 ", "err=0, level=1, key=0, parent_key=0\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.outcome, however_cut(c.text, parse));
    log_.clear();
    parse(cut_text(c.text, c.text.size(), 1));
    const std::vector<std::string> lines = log_.texts(LM_ERROR);
    ASSERT_EQ(c.report.empty() ? 0u : 1u, lines.size()) << c.text;
    if (lines.empty()) continue;
    const std::string begin = "Failed to parse JSON-RPC: ",
                      gave_up = "parse error: client cancelled parse via callback return value\n";
    EXPECT_EQ(0u, lines[0].find(begin + (c.outcome[0] == 'r' ? gave_up : ""))) << lines[0];
    EXPECT_EQ(lines[0].size() - c.report.size(), lines[0].rfind(c.report)) << lines[0];
  }
}

TEST_F(JsonRpcParserTest, ARefusalAtTheEndOfAnObjectIsLoggedByItsPlace) {
  const struct {
    const char* text;
    unsigned int refuse;
    std::vector<std::string> lines;
  } cases[] = {
      {R"({"id":1})", 0, {"Failed to handle end of map.\n"}},
      {R"({"params":{}})", 4, {"Failed to handle end of internal map.\n"}},
      {R"({"error":{"data":{}}})", 256, {"Failed to handle end of error data map.\n"}},
      {R"({"error":{"data":[]}})", 256, {}},
  };
  for (const auto& c : cases) {
    log_.clear();
    Recorder parser;
    parser.refuse = c.refuse;
    parser.open();
    EXPECT_EQ("refused 0", feed(parser, cut_text(c.text, 100, 1)).substr(0, 9));
    std::vector<std::string> lines = log_.texts(LM_ERROR);
    lines.pop_back();  // the report
    EXPECT_EQ(c.lines, lines);
  }
}

}  // namespace
