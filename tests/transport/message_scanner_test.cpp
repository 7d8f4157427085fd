#include "transport/message_scanner.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_reader.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/support/log_capture.h"
#include "transport/text_feeder.h"
#include "vexa/yajl_printer.h"

using namespace transport;

namespace {

constexpr std::size_t npos = Message_Scanner::npos;

/// The end as the scanner finds it in pieces of that size.
std::size_t end_in_pieces(const std::string& text, std::size_t size) {
  Message_Scanner scanner;
  for (std::size_t at = 0; at < text.size(); at += size) {
    const std::size_t end = scanner.scan(text.data() + at, std::min(size, text.size() - at));
    if (end != npos) return at + end;
  }
  return npos;
}

TEST(MessageScannerTest, FindsTheEndWhereverTheTextIsCut) {
  const struct {
    const char* text;
    std::size_t end;
  } cases[] = {
      {"{} ", 2},
      {"[]x", 2},
      {R"({"a":"}"}{)", 9},
      {R"({"a":"\"}"}{)", 11},
      {R"({"a":"\\"}{)", 10},
      {R"({"}":[1,{"]":[]}],"b":-1.5e3} )", 29},
      {R"(["\\\"]","[{"]])", 14},
      {R"({"a":"\u007D\\\\\""}x)", 20},
      {"{\"a\":\"\n}\"}x", 10},
      {"[1 2 garbage} x", 13},
      {"123 ", 3},
      {"123", npos},
      {"-1.5e3\n", 6},
      {"true,", 4},
      {"nul{}", 3},
      {R"(12"x")", 2},
      {R"("a\"b"x)", 6},
      {R"("a)", npos},
      {"}x", 1},
      {"]", 1},
      {",", 1},
      {":x", 1},
      {"{[{[", npos},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string text = c.text;
    for (std::size_t size = 1; size <= text.size(); ++size) {
      EXPECT_EQ(c.end, end_in_pieces(text, size)) << "pieces of " << size;
    }
  }
}

TEST(MessageScannerTest, TellsWhichBytesArePartsOfWholeTokens) {
  constexpr std::size_t on = Message_Scanner::npos;  // the token goes on
  const struct {
    std::vector<std::string> pieces;
    std::vector<std::size_t> whole;
  } cases[] = {
      {{R"({"key":12)", "3", ",4 "}, {7, on, 3}},
      {{R"({"k)", "ey", R"(":)"}, {1, on, 2}},
      {{R"({"a":"x\)", R"("y)", R"(")"}, {5, on, 1}},
      {{R"({"a":tru)", "e", "}"}, {5, on, 1}},
      {{"{\"a\":\"x\ny", "z"}, {8, on}},  // a raw control byte: the parser is to see it now
      {{"12", "3"}, {0, on}},
  };
  for (const auto& c : cases) {
    Message_Scanner scanner;
    for (std::size_t i = 0; i < c.pieces.size(); ++i) {
      SCOPED_TRACE(c.pieces[0] + ", piece " + std::to_string(i));
      scanner.scan(c.pieces[i].data(), c.pieces[i].size());
      EXPECT_EQ(c.whole[i], scanner.whole());
    }
  }
}

const char* const outcome_names[] = {"more", "complete", "no json", "refused", "refused at end"};

/// Feeds a text in pieces of that size, up to its end, as a channel does: what came of it, how many
/// bytes were used, and the message.
std::string feed_in_pieces(const std::string& text, std::size_t size) {
  JSON_RPC_Reader reader;
  reader.open();
  Text_Feeder feeder;
  feeder.begin();
  Text_Feeder::Outcome outcome = Text_Feeder::MORE;
  std::string all;
  std::size_t at = 0;
  while (at < text.size() && outcome == Text_Feeder::MORE) {
    std::size_t used;
    outcome = feeder.feed(reader, text.data() + at, std::min(size, text.size() - at), used);
    at += used;
  }
  if (outcome == Text_Feeder::MORE) outcome = feeder.finish(reader);
  if (outcome == Text_Feeder::REFUSED) {
    bool ended = false;
    while (at < text.size() && !ended) {
      std::size_t used;
      ended = feeder.skip(text.data() + at, std::min(size, text.size() - at), used);
      at += used;
    }
    if (ended) outcome = Text_Feeder::REFUSED_AT_END;
  }
  YAJL_String_Printer printer(all);
  JSON_RPC_Writer writer;
  const JSON_RPC_Object_var object = reader.object();
  if (outcome == Text_Feeder::COMPLETE && object.get() != nullptr) writer.write(*object, printer);
  const std::string bytes = outcome == Text_Feeder::NO_JSON ? "" : std::to_string(at) + " ";
  return std::string(outcome_names[outcome]) + ": " + bytes + all;
}

TEST(TextFeederTest, GivesTheSameInPiecesOfAnySize) {
  const Log_Capture log;
  const struct {
    const char* text;
    const char* expected;
  } cases[] = {
      {R"({"jsonrpc":"2.0","id":1,"method":"m","params":["a\"}\\",-12.5,true,null,{}]}tail)",
       R"(complete: 76 {"jsonrpc":"2.0","id":1,"method":"m","params":["a\"}\\",-12.5,true,null,{}]})"},
      {R"({"id":"\u00e9\n","result":123456789})",
       R"(complete: 36 {"jsonrpc":"","id":"é\n","result":123456789})"},
      {"123 ", "complete: 3 "},
      {"\"text\"x", "complete: 6 "},
      {"true ", "refused at end: 4 "},
      {"[1,[2,\"]\"]]x", "refused at end: 11 "},
      {R"({"x":{"y":"}"},"id":1} )", "refused at end: 22 "},
      {"nul ", "no json: "},
      {"{\"a\":\"x\ny\"} ", "no json: "},
      {R"({"id":1,,"method":"m"})", "no json: "},
      {R"({"id":1,"method":"m")", "no json: "},
      {"{\"method\":\"\xff\"} ", "no json: "},
      {"}", "no json: "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string text = c.text;
    for (std::size_t size = 1; size <= text.size(); ++size) {
      EXPECT_EQ(c.expected, feed_in_pieces(text, size)) << "pieces of " << size;
    }
  }
}

TEST(TextFeederTest, ALongTextInSmallPiecesCostsTimeLinearInIt) {
  const Log_Capture log;
  const std::string head = R"({"jsonrpc":"2.0","id":1,"method":")";
  const std::string text = head + std::string(8u << 20, 'x') + "\"}";
  const std::clock_t begin = std::clock();
  EXPECT_EQ(0u, feed_in_pieces(text, 1024).find("complete: " + std::to_string(text.size())));
  // Scanned again from its start for every piece, it would take 20 s.
  EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 5);
}

}  // namespace
