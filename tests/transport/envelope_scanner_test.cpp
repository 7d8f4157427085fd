#include "transport/envelope_scanner.h"

#include <gtest/gtest.h>

#include <string>

using namespace transport;

namespace {

TEST(EnvelopeScannerTest, KnowsWhomAMessageAnswersAsSoonAsTheTextTells) {
  typedef json_spirit::Value Value;
  const struct {
    std::string text;  // known with its last byte, not before
    Envelope_Scanner::Kind kind;
    Value id;
  } cases[] = {
      {R"({"jsonrpc":"2.0","id":3,"result":)", Envelope_Scanner::RESPONSE, 3},
      {R"({"jsonrpc":"2.0","id":"a\"}","error":)", Envelope_Scanner::RESPONSE, "a\"}"},
      {R"({"id" : "\u00e9" , "result" :)", Envelope_Scanner::RESPONSE, "\xc3\xa9"},
      {R"({"result":{"id":1,"method":"m","x":["id",{"id":2}]},"id":-4})",
       Envelope_Scanner::RESPONSE, -4},
      {R"({"error":{"code":1},"id":null,)", Envelope_Scanner::RESPONSE, Value()},
      {R"({"id":18446744073709551615,"result":)", Envelope_Scanner::RESPONSE, UINT64_MAX},
      {R"({"jsonrpc":"2.0","method":)", Envelope_Scanner::NOT_A_RESPONSE, Value()},
      {R"({"id":7,"params":)", Envelope_Scanner::NOT_A_RESPONSE, Value()},
      {R"({"x":"result","y":{"result":1},"method":)", Envelope_Scanner::NOT_A_RESPONSE, Value()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Envelope_Scanner scanner;
    for (std::size_t i = 0; i < c.text.size(); ++i) {
      EXPECT_FALSE(scanner.known()) << "at " << i;
      scanner.scan(&c.text[i], 1);
    }
    EXPECT_TRUE(scanner.known());
    EXPECT_EQ(c.kind, scanner.kind());
    if (c.kind == Envelope_Scanner::RESPONSE) {
      EXPECT_EQ(c.id, scanner.id());
    }
    Envelope_Scanner whole;
    whole.scan(c.text.data(), c.text.size());
    EXPECT_EQ(c.kind, whole.kind());
    EXPECT_EQ(scanner.id(), whole.id());
  }
}

}  // namespace
