#include "transport/inbound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include "tests/transport/stream_fixture.h"

using namespace transport;

namespace {

typedef json_spirit::Value Value;

const std::string good = R"({"jsonrpc":"2.0","id":1,"method":"m"})";

std::string framed(const std::string& body) {
  return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// Messages as short text: "1:m " for a request, "m " for a notification, "=1 " for an answer.
class Fake_Sink final : public Inbound::Sink {
public:
  void message(const JSON_RPC_Object_var& object, std::size_t) override {
    const bool call = object->type == JSON_RPC_Object::TYPE_REQUEST ||
                      object->type == JSON_RPC_Object::TYPE_NOTIFY;
    if (object->type != JSON_RPC_Object::TYPE_NOTIFY) {
      seen += std::string(call ? "" : "=") + JSON_RPC_Id(object->id).c_str() + (call ? ":" : "");
    }
    if (call) seen += static_cast<const JSON_RPC_Request&>(*object).method;
    seen += ' ';
    last = object;
  }
  bool overloaded() const override { return false; }

  std::string seen;
  JSON_RPC_Object_var last;
};

struct Case {
  std::string input;
  std::string seen;    // by the sink
  std::string output;  // to the peer
  bool stopped = false;
};

class InboundTest : public Stream_Fixture {
protected:
  /// What a new channel makes of `input` in pieces of that size, and of its end.
  Case read(const std::string& input, std::size_t size) {
    Wired_Channel wired(limits_);
    Fake_Sink sink;
    Inbound inbound(*wired.stream, sink, true);
    Case result{input, "", "", false};
    for (std::size_t at = 0; at < input.size() && !result.stopped; at += size) {
      std::size_t used;
      const std::size_t length = std::min(size, input.size() - at);
      result.stopped = inbound.feed(input.data() + at, length, used) == Inbound::STOP;
      if (!result.stopped) {
        EXPECT_EQ(length, used);
      }
    }
    inbound.end();
    result.seen = sink.seen;
    result.output = wired.output();
    return result;
  }

  void check(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.input.substr(0, 200));
      for (std::size_t size = 1; size <= c.input.size();
           size = size < 70 ? size + 1 : std::max(size + 1, c.input.size())) {
        const Case got = read(c.input, size);
        ASSERT_EQ(c.seen, got.seen) << "pieces of " << size;
        ASSERT_EQ(c.output, got.output) << "pieces of " << size;
        ASSERT_EQ(c.stopped, got.stopped) << "pieces of " << size;
      }
    }
  }
};

const std::string no_json = error_line("null", -32700);
const std::string no_message = error_line("null", -32600);

TEST_F(InboundTest, TextThatIsNoJsonIsAnsweredOnceAndSkippedToTheLineFeed) {
  std::vector<Case> cases;
  for (const char* broken : {"{\"jsonrpc\" x {} \"", "nul", "hello {\"id\":1} world", "}", ",",
                             ": [", R"({"id":4,"method":"m",,"x":{}})",
                             "{\"id\":4,\"method\":\"\xff\"}", "{'id':1}", "-", "\xef\xbb\xbf{}"}) {
    cases.push_back({std::string(broken) + "\n" + good, "1:m ", no_json});
    cases.push_back({good + " " + broken + "\r\n  \n" + good + good, "1:m 1:m 1:m ", no_json});
  }
  // A raw line feed breaks a text, and is the line feed that it is skipped to.
  cases.push_back({"{\"id\":4,\"method\":\"a\n" + good, "1:m ", no_json});
  check(cases);
}

TEST_F(InboundTest, JsonThatIsNoMessageIsAnsweredOnceAndSkippedByItsBraces) {
  std::vector<Case> cases;
  const std::string deep = std::string(125, '[') + std::string(125, ']');
  const struct {
    std::string text;
    std::string id;
  } refused[] = {
      {"[]", "null"},
      {"[1,}", "null"},  // refused at its first byte
      {R"([{"]":[1]},"]"])", "null"},
      {"{}", "null"},
      {"5 ", "null"},
      {"\"text\"", "null"},
      {"true ", "null"},
      {"null ", "null"},
      {R"({"id":4})", "4"},
      {R"({"jsonrpc":"2.0","id":4,"params":[1]})", "4"},
      {R"({"id":"a","method":""})", "\"a\""},
      {R"({"id":4,"method":"m","x":{"}":"}"}})", "4"},
      {R"({"x":1,"id":4,"method":"m"})", "null"},
      {R"({"id":4,"method":5})", "4"},
      {R"({"id":4,"jsonrpc":2,"method":"m"})", "4"},
      {R"({"id":true,"method":"m"})", "null"},
      {R"({"id":1.5,"method":"m"})", "1.5"},
      {R"({"id":[1],"method":"m"})", "null"},
      {R"({"id":4,"method":"m","params":)" + deep + "}", "4"},
      // Skipped by its braces alone: what comes behind the refusal need not be JSON.
      {R"({"id":4,"method":5,garbage "}" {]})", "4"},
  };
  for (const auto& r : refused) {
    cases.push_back({r.text + good, "1:m ", error_line(r.id, -32600)});
  }
  cases.push_back({std::string(1000, '['), "", no_message});
  check(cases);
}

TEST_F(InboundTest, ThreeBadOnesInARowEndTheChannel) {
  const std::string notify = R"({"method":"n","params":{}})";
  check({
      {"[]{}x\n" + good, "", no_message + no_message + no_json, true},
      {"[]x\n" + notify + "x\n[]" + good, "n 1:m ", no_message + no_json + no_json + no_message},
      {"[][]" + good + "[][][]" + good, "1:m ",
       no_message + no_message + no_message + no_message + no_message, true},
      // Bad answers count like the others.
      {R"({"id":4,"result":1,"x":1}{"id":4,"error":{}}{"id":4,"error":5})" + good, "", "", true},
  });
}

TEST_F(InboundTest, TheEndOfTheInputMakesAnUnfinishedMessageABadOne) {
  check({
      {good, "1:m ", ""},
      {good + " \n", "1:m ", ""},
      {R"({"method":"n","params":{"}\"\\\\":["]\u007D",-1.5e3,true]}})" + good, "n 1:m ", ""},
      {good.substr(0, good.size() - 1), "", no_json},
      {"\"unfinished", "", no_json},
      {"nul", "", no_json},
      {"5", "", no_message},
      {"x y", "", no_json},
      {"[1", "", no_message},
      {R"({"id":4,"method":5)", "", error_line("4", -32600)},
      {R"({"id":4,"result":[1)", "", ""},
  });
}

TEST_F(InboundTest, AMessageOverTheLimitEndsTheChannel) {
  limits_.max_message = 60;
  const auto sized = [](std::size_t size) {
    const std::string head = R"({"jsonrpc":"2.0","id":2,"method":")";
    return head + std::string(size - head.size() - 2, 'x') + "\"}";
  };
  const std::string fits = "2:" + std::string(24, 'x') + " ";
  check({
      {good + sized(60) + "\n" + good, "1:m " + fits + "1:m ", ""},
      {good + sized(61) + "\n" + good, "1:m ", error_line("2", -32600), true},
      {sized(5000) + good, "", error_line("2", -32600), true},
      {"[" + std::string(100, ' ') + "]" + good, "", no_message, true},
      {framed(sized(60)) + framed(good), fits + "1:m ", ""},
      {framed(sized(61)) + framed(good), "", framed(no_message.substr(0, no_message.size() - 1)),
       true},
  });
}

TEST_F(InboundTest, ALongTextInSmallPiecesCostsTimeLinearInIt) {
  limits_.max_message = 0;
  const std::string method(8u << 20, 'x');
  const std::clock_t begin = std::clock();
  const Case got = read(R"({"jsonrpc":"2.0","id":1,"method":")" + method + "\"}", 1024);
  EXPECT_EQ(method.size() + 3, got.seen.size());
  // Scanned again from its start for every piece, it would take 20 s.
  EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 5);
}

TEST_F(InboundTest, HeadersTellWhereMessagesEnd) {
  const auto answer = [](const std::string& line) {
    return framed(line.substr(0, line.size() - 1));
  };
  const std::string refused = answer(no_message);
  std::vector<Case> cases = {
      {framed(good) + framed(" " + good + "\r\n") + "\r\n" + framed(good), "1:m 1:m 1:m ", ""},
      {"content-LENGTH:\t37 \n\n" + good, "1:m ", ""},
      {"Content-Type: application/x; charset=utf-8\r\n" + framed(good), "1:m ", ""},
      // What is no message is skipped by its length, line feeds and braces or not.
      {framed("x\n" + good) + framed(good), "1:m ", answer(no_json)},
      {framed("[1]]]" + good) + framed(good), "1:m ", refused},
      {framed(R"({"id":4,"method":5)") + framed(good), "1:m ", answer(error_line("4", -32600))},
      {framed(good.substr(0, 30)) + framed(good), "1:m ", answer(no_json)},
      {framed("5") + framed(good), "1:m ", refused},
      {framed("  ") + framed(good), "1:m ", answer(no_json)},
      {framed(good + good) + framed(good), "1:m 1:m ", ""},  // the length rules: one message
      {framed(good).substr(0, 40), "", answer(no_json)},
      {"Content-Length: 3\r\n", "", refused},
  };
  for (const char* header :
       {"Content-Length: 0\r\n\r\n", "Content-Length: 1x\r\n\r\n", "Content-Length: -1\r\n",
        "Content-Length:\r\n", "Content-Length: 37\r\nContent-Length: 37\r\n", "Content\r\n",
        "Content-Type: x\r\n\r\n", "Content-Length: 18446744073709551616\r\n\r\n"}) {
    cases.push_back({header + good, "", refused, true});
    cases.push_back({framed(good) + header + good, "1:m ", refused, true});
  }
  check(cases);
}

TEST_F(InboundTest, ABadAnswerCompletesWhoeverWaitsForItAndIsNotAnswered) {
  limits_.max_message = 100;
  const struct {
    std::string text;
    std::string got;  // by the handler that waits for id 7
  } cases[] = {
      {R"({"id":7,"result":1,"x":2})", "-32603"},
      {R"({"id":7,"error":{}})", "-32603"},
      {R"({"id":7,"error":5})", "-32603"},
      {R"({"id":7,"error":{"code":"x"}})", "-32603"},
      {R"({"id":7,"error":{"code":1.5}})", "-32603"},
      {R"({"id":7,"result":1,"error":{"code":1}})", "-32603"},
      {R"({"id":7,"result":1,"method":"m"})", "-32603"},
      {"{\"id\":7,\"result\":[1,}\n", "-32603"},
      {R"({"id":7,"result":")" + std::string(200, 'x') + "\"}", "-32603"},
      {R"({"id":7,"result":)" + std::string(125, '[') + std::string(125, ']') + "}", "-32603"},
      {R"({"id":7,"result":[1)", "-32603"},
      {R"({"id" : 7 , "result":{"id":1,"method":"m"},"x":2})", "-32603"},
      {R"({"result":{"id":1,"x":["id",{"id":2}]},"id":7,"x":2})", "-32603"},
      {R"({"id":"7","result":1,"x":2})", ""},
      {R"({"result":1,"x":2,"id":7})", ""},
      {R"({"id":7,"result":null})", "result"},
      {R"({"id":7,"error":{"code":-5}})", "-5"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    for (std::size_t size : {std::size_t{1}, std::size_t{16}, c.text.size()}) {
      std::string got;
      JSON_RPC_Response_Map::instance()->insert(7, JSON_RPC_Handler_var(new Noting_Handler(got)));
      Wired_Channel wired(limits_);
      Fake_Sink sink;
      Inbound inbound(*wired.stream, sink, true);
      for (std::size_t at = 0; at < c.text.size(); at += size) {
        std::size_t used;
        inbound.feed(c.text.data() + at, std::min(size, c.text.size() - at), used);
      }
      inbound.end();
      // What is good goes on to the sink, which dispatches it.
      if (sink.last.get() != nullptr) {
        JSON_RPC_Dispatcher::instance()->dispatch(wired.channel, sink.last);
      }
      EXPECT_EQ(c.got.empty() ? "" : c.got + " ", got);
      EXPECT_EQ("", wired.output());
      JSON_RPC_Response_Map::instance()->remove(7);
    }
  }
}

}  // namespace
