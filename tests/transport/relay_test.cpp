// Calls and forwarded requests of channels, and what becomes of them when one of the ends goes.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_response_map.h"
#include "json_rpc/json_rpc_session.h"
#include "tests/transport/stream_fixture.h"
#include "transport/inbound.h"
#include "transport/link_channel.h"

using namespace transport;

namespace {

typedef json_spirit::Value Value;

/// What a connection does with the messages of its channel.
class Answer_Sink final : public Inbound::Sink {
public:
  explicit Answer_Sink(Stream_Channel& channel) : channel_(channel) {}
  void message(const JSON_RPC_Object_var& object, std::size_t) override {
    channel_.answered(object);
  }
  bool overloaded() const override { return false; }

private:
  Stream_Channel& channel_;
};

/// A channel with the reading half of its connection.
struct Read_Channel : Wired_Channel {
  explicit Read_Channel(const Limits& limits)
      : Wired_Channel(limits), sink(*stream), inbound(*stream, sink, true) {}
  void read(const std::string& text) {
    std::size_t used;
    inbound.feed(text.data(), text.size(), used);
  }
  /// As a connection closes.
  void close() {
    inbound.abandon_relay();
    stream->closed();
  }

  Answer_Sink sink;
  Inbound inbound;
};

JSON_RPC_Object_var call_of(const Value& id) {
  JSON_RPC_Object_var request = JSON_RPC_Session::make_rpc_request("m", Value(7));
  request->id = id;
  return request;
}

std::string error_text(const std::string& id, const std::string& message) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"error":{"code":-32603,"message":")" + message +
         "\"}}\n";
}

const std::string closed_text = "Internal error, forwarder is closed.";

class RelayTest : public Stream_Fixture {
protected:
  /// Has `requester` ask under `id`, and the agent get it under the next forward id.
  void forward(Read_Channel& requester, const Value& id) {
    requester.stream->await(id);
    ASSERT_EQ(0, agent_.stream->forward(requester.channel, call_of(id)));
    agent_.output();
  }

  Read_Channel agent_{limits_};
  Read_Channel requester_{limits_};
};

TEST_F(RelayTest, AnAnswerFindsItsRequesterHoweverItComes) {
  const struct {
    std::string answer;
    std::string got;
  } cases[] = {
      {R"({"jsonrpc":"2.0","id":1,"result":[1,{"a":null}]})",
       R"({"jsonrpc":"2.0","id":"x","result":[1,{"a":null}]})"
       "\n"},
      {R"({"id":1,"error":{"code":5,"message":"no","data":[2]},"jsonrpc":"2.0"})",
       R"({"jsonrpc":"2.0","id":"x","error":{"code":5,"message":"no","data":[2]}})"
       "\n"},
      {R"({"id":1,"result":[1}})", error_text("\"x\"", closed_text)},
      {R"({"id":1,"result":)" + std::string(200, '[') + std::string(200, ']') + "}",
       error_text("\"x\"", closed_text)},
      {R"({"id":1,"error":{"code":"x"}})", error_text("\"x\"", closed_text)},
      {R"({"id":1,"unknown":2,"result":3})", error_text("\"x\"", closed_text)},
      {R"({"id":1})", error_text("\"x\"", closed_text)},
      {R"({"id":2,"result":1})", ""},
      {R"({"id":4294967297,"result":1})", ""},
      {R"({"id":"1","result":1})", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer);
    Read_Channel agent(limits_);
    Read_Channel requester(limits_);
    requester.stream->await("x");
    const JSON_RPC_Object_var request = call_of("x");
    ASSERT_EQ(0, agent.stream->forward(requester.channel, request));
    EXPECT_EQ(Value("x"), request->id);
    EXPECT_EQ(R"({"jsonrpc":"2.0","id":1,"method":"m","params":7})"
              "\n",
              agent.output());
    agent.read(c.answer);
    EXPECT_EQ(c.got, requester.output());
    agent.close();
    EXPECT_EQ(c.got.empty() ? error_text("\"x\"", closed_text) : "", requester.output())
        << "answered once, whatever the answer was";
  }
}

TEST_F(RelayTest, OnlyTheFirstOpenAnswerGoesOn) {
  Read_Channel other(limits_);
  forward(requester_, 5);
  requester_.stream->await(6);
  ASSERT_EQ(0, other.stream->forward(requester_.channel, call_of(6)));
  const std::string half = R"({"id":1,"result":[")" + std::string(70'000, 'x') + "\"";
  agent_.read(half);
  other.read(half);
  EXPECT_FALSE(agent_.inbound.relay_waits(agent_.wire));
  EXPECT_TRUE(other.inbound.relay_waits(other.wire));
  // The second breaks off before its first byte has left: its requester gets an error in its place.
  other.close();
  const std::string first = requester_.output();
  EXPECT_EQ(std::string::npos, first.find("\"id\":6"));
  agent_.read("]}");
  const std::string rest = requester_.output();
  EXPECT_EQ("\"]}\n" + error_text("6", closed_text), rest) << "with the quote that was gathered";
  EXPECT_EQ(0, requester_.wire->closes);
}

TEST_F(RelayTest, CallsEndWithTheChannel) {
  JSON_RPC_Response_Map& waiting = *JSON_RPC_Response_Map::instance();
  std::string got;
  const JSON_RPC_Handler_var handler(new Noting_Handler(got));
  waiting.insert("a", handler);
  waiting.insert("b", handler);
  JSON_RPC_Request_Generator generated("m", nullptr);
  JSON_RPC_Request_Generator answered("m", nullptr);
  waiting.insert(generated.id(), handler);
  waiting.insert(answered.id(), handler);
  EXPECT_EQ(0, agent_.stream->send(call_of("a")));
  EXPECT_EQ(0, agent_.stream->send(call_of("b")));
  EXPECT_EQ(0, agent_.stream->send(generated));
  EXPECT_EQ(0, agent_.stream->send(answered));
  agent_.read(R"({"id":"b","result":1}{"id":")" + answered.id() + R"(","result":1})");
  EXPECT_EQ("result result ", got);
  EXPECT_EQ(nullptr, waiting.find(answered.id()).get()) << "a late answer clears up";
  agent_.close();
  EXPECT_EQ("result result -32603 -32603 ", got);
  EXPECT_EQ(nullptr, waiting.find(generated.id()).get());

  JSON_RPC_Request_Generator late("m", nullptr);
  waiting.insert(late.id(), handler);
  EXPECT_EQ(-1, agent_.stream->send(late));
  EXPECT_EQ(ENOTCONN, errno);
  EXPECT_EQ(nullptr, waiting.find(late.id()).get());
}

TEST_F(RelayTest, ALinksChannelOutlivesItsConnections) {
  Link_Channel* const link = new Link_Channel("tcp://peer:1");
  const JSON_RPC_Channel_var channel(link);
  EXPECT_EQ(-1, link->send(call_of("a")));
  EXPECT_EQ(ENOTCONN, errno);
  EXPECT_EQ(nullptr, link->send_begin());
  link->attach(agent_.channel);
  EXPECT_EQ(0, link->send(call_of("a")));
  yajl_gen_t* const gen = link->send_begin();
  ASSERT_NE(nullptr, gen);
  link->attach(requester_.channel);
  yajl_gen_map_open(gen);
  yajl_gen_map_close(gen);
  EXPECT_EQ(0, link->send(call_of("b")));
  EXPECT_EQ(-1, link->send_end()) << "no message, but it goes where it was begun";
  EXPECT_NE(std::string::npos, agent_.output().find("\"a\""));
  EXPECT_NE(std::string::npos, requester_.output().find("\"b\""));
  JSON_RPC_Request_Generator call("m", nullptr);
  JSON_RPC_Response_Map::instance()->insert(call.id(), JSON_RPC_Handler_var());
  link->attach(JSON_RPC_Channel_var());
  EXPECT_EQ(-1, link->send(call));
  EXPECT_EQ(0, JSON_RPC_Response_Map::instance()->insert(call.id(), JSON_RPC_Handler_var()))
      << "its id is not left there";
}

}  // namespace
