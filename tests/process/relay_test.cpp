// Calls that a hub relays to its agents. An agent is a host of its own, or a client of the test
// that has registered and then answers as it likes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/process/host_fixture.h"

namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const char* const closed_text = "Internal error, forwarder is closed.";

std::string agent_call(const std::string& agent, const std::string& method,
                       const std::string& params, const std::string& id = std::string()) {
  return request(
      "agent.call",
      R"({"agent":")" + agent + R"(","method":")" + method + R"(","params":)" + params + "}", id);
}

std::string registration(const std::string& params) {
  return request("channel.register", params, "0");
}

/// An agent that the test plays.
class Agent : public Host_Client {
public:
  Agent(const std::string& url, const std::string& id) : Host_Client(url) {
    EXPECT_EQ(result("0", "true"), call(registration(R"({"type":1,"id":")" + id + "\"}")));
  }
  /// The id of the next call that comes.
  std::string next() {
    json_spirit::Object call = object();
    EXPECT_EQ(json_spirit::int_type, call["id"].type());
    return call["id"].type() == json_spirit::int_type ? std::to_string(call["id"].get_int64()) : "";
  }
  /// The beginning of an answer, of about that size, whose result is an open array.
  bool begin_answer(const std::string& id, std::size_t bytes) {
    std::string text = result(id, "[");
    text.pop_back();
    for (; bytes > 1000; bytes -= 1000) text += "\"" + std::string(997, 'x') + "\",";
    return send(text);
  }
};

class RelayTest : public Host_Fixture {
protected:
  /// A hub on a Unix socket, whose buffers are small.
  void start(Words options = {}) {
    options.insert(options.end(), {"--listen", "unix://" + (directory_ / "hub")});
    Host_Fixture::start(std::move(options));
  }
  std::unique_ptr<Host_Process> agent(const std::string& id, Words options = {}) const {
    options.insert(options.end(), {"--connect", "unix://" + (directory_ / "hub"), "--agent-id", id,
                                   "--log-level", "warning"});
    return std::make_unique<Host_Process>(std::move(options));
  }
  /// Until calls reach that agent.
  void reach(const std::string& id) {
    Host_Client client(url());
    EXPECT_TRUE(wait_until([&] { return client.call(agent_call(id, "echo", "1", "1")) == echoed; }))
        << id;
  }

  Temporary_Directory directory_;
};

TEST_F(RelayTest, AnswersToTheLetter) {
  start();
  const auto a = agent("a");
  reach("a");
  Host_Client client(url());
  for (const char* id : {"1", "\"x\"", "-7", "9223372036854775807", "18446744073709551615"}) {
    const std::string value = R"({"a":[1.5,null,"é\u0000\"/"],"b":{}})";
    EXPECT_EQ(result(id, value), client.call(agent_call("a", "echo", value, id)));
    EXPECT_EQ(result(id, blob(3000)),
              client.call(agent_call("a", "blob", R"({"bytes":3000})", id)));
    EXPECT_EQ(error(id, -32601, "Method not found"), client.call(agent_call("a", "no", "[]", id)));
    EXPECT_EQ(error(id, -32602, "Invalid params, agent 'b' is not connected."),
              client.call(agent_call("b", "echo", "1", id)));
    EXPECT_THAT(client.call(request("agent.call", R"({"agent":"a"})", id)), HasSubstr(":-32602,"));
  }
  Agent b(url(), "b");
  EXPECT_EQ(error("1", -32602, "Invalid params, agent 'b' is the caller itself."),
            b.call(agent_call("b", "echo", "1", "1")));
  EXPECT_EQ(result("1", "2"), b.call(agent_call("a", "echo", "2", "1")));
  ASSERT_TRUE(client.send(agent_call("b", "m", "[1]") + agent_call("b", "n", "[2]", "5")));
  EXPECT_EQ(R"({"jsonrpc":"2.0","method":"m","params":[1]})", b.line());
  const std::string id = b.next();
  const std::string late = R"({"jsonrpc":"2.0","result":[3],"id":)" + id + "}\n";
  ASSERT_TRUE(b.send(late + late));  // an id awaits one answer
  EXPECT_EQ(result("5", "[3]"), client.line());
  EXPECT_EQ(result("6", "1"), client.call(request("echo", "1", "6")));
}

TEST_F(RelayTest, OnlyAFreeIdAndTheTokenMakeAnAgent) {
  start({"--agent-token", directory_.write("token", "secret\n")});
  const auto a = agent("a", {"--agent-token", directory_ / "token"});
  reach("a");
  Host_Client client(url());
  const struct {
    const char* params;
    const char* reason;
  } cases[] = {
      {R"({"type":1,"id":"b"})", "the token is wrong"},
      {R"({"type":1,"id":"b","token":"Secret"})", "the token is wrong"},
      {R"({"type":2,"id":"b","token":"secret"})", "is expected"},
      {R"({"type":1,"id":"","token":"secret"})", "is expected"},
      {R"([1,"b"])", "is expected"},
      {R"({"type":1,"id":"a","token":"secret"})", "an agent with this id is connected"},
  };
  for (const auto& c : cases) {
    const std::string refusal = client.call(registration(c.params));
    EXPECT_THAT(refusal, HasSubstr(":-32602,")) << c.params;
    EXPECT_THAT(refusal, HasSubstr(c.reason)) << c.params;
  }
  EXPECT_THAT(client.call(agent_call("b", "echo", "1", "1")), HasSubstr("'b' is not connected"));
  const auto wrong = agent("b", {"--agent-token", directory_.write("wrong", "guess\n")});
  wrong->wait_for_log("is refused: -32602");
  a->signal(SIGKILL);
  a->wait();
  const std::string takeover = registration(R"({"type":1,"id":"a","token":"secret"})");
  EXPECT_TRUE(wait_until([&] { return client.call(takeover) == result("0", "true"); }));
}

TEST_F(RelayTest, EveryRequesterGetsItsOwnAnswers) {
  const int requesters = sanitized ? 4 : 8;
  const int calls = sanitized ? 25 : 50;
  for (const char* threads : {"1", "2"}) {
    // All requesters may have much on its way to an agent at once.
    start({"--threads", threads, "--stall-timeout", "60", "--max-queue", "100000000"});
    const auto a = agent("a", {"--threads", threads});
    const auto b = agent("b", {"--threads", threads});
    reach("a");
    reach("b");
    const std::size_t sizes[] = {0, 1, 10, 100, 1000, 10000, 66000, 200000, 300000};
    std::vector<std::thread> all;
    for (int r = 0; r < requesters; ++r) {
      all.emplace_back([&, r] {
        Host_Client client(url());
        for (int i = 0; i < calls; ++i) {
          const std::string who = std::to_string(r) + "." + std::to_string(i);
          const std::size_t size = sizes[(7 * i + r) % 9];
          const std::string value = "[\"" + who + "\",\"" + std::string(size, 'y') + "\"]";
          const std::string got =
              client.call(agent_call((i + r) % 2 == 0 ? "a" : "b", "echo", value, "1"));
          ASSERT_TRUE(got == result("1", value)) << who << ": " << got.substr(0, 200);
        }
      });
    }
    for (std::thread& thread : all) thread.join();
    // Two agents at once: the answers come one after the other, in either order.
    Host_Client client(url());
    for (int i = 0; i < 3; ++i) {
      client.send(agent_call("a", "blob", R"({"bytes":3000000})", "1") +
                  agent_call("b", "blob", R"({"bytes":3000001})", "2"));
      const std::string one = client.line(), two = client.line();
      EXPECT_TRUE(std::min(one, two) == result("1", blob(3000000)) &&
                  std::max(one, two) == result("2", blob(3000001)));
    }
    client.close();
    a->stop();
    b->stop();
    host_->stop();
    EXPECT_EQ(0u, host_->logged(" error "));
  }
}

TEST_F(RelayTest, ASlowRequesterHoldsItsAnswerBackAndADeafOneIsClosed) {
  start({"--stall-timeout", "1", "--max-message", "0", "--threads", "2"});
  constexpr std::size_t pieces = sanitized ? 600 : 2000;  // of 100 KB
  Agent a(url(), "a");
  Host_Client slow(url()), other(url());
  slow.send(agent_call("a", "huge", "[]", "1"));
  const std::string id = a.next();
  const std::size_t resident = host_->resident_bytes();
  std::atomic<std::size_t> sent{0};
  std::thread sender([&] {
    ASSERT_TRUE(a.begin_answer(id, 1000));
    const std::string texts = blob(100000);
    const std::string piece = texts.substr(1, texts.size() - 2) + ",";
    for (std::size_t i = 0; i < pieces; ++i) {
      ASSERT_TRUE(a.send(piece));
      sent += piece.size();
    }
    ASSERT_TRUE(a.send("0]}\n"));
  });
  std::size_t taken = 0;
  for (int i = 0; i < 15; ++i) {  // three times the stall time
    taken += slow.bytes(150000).size();
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_LT(sent, taken + (8u << 20));
    if (!sanitized) {
      EXPECT_LT(host_->resident_bytes(), resident + (24u << 20));
    }
  }
  EXPECT_EQ(15u * 150000, taken);
  EXPECT_EQ(0u, host_->logged("is closed"));
  EXPECT_EQ(echoed, other.call(echo));
  other.send(agent_call("a", "m", "[]", "2"));
  host_->wait_for_log("is closed: it takes no output.");  // from here on nothing is taken
  EXPECT_EQ(1u, host_->logged("is closed"));
  sender.join();
  const std::string next = a.next();
  ASSERT_TRUE(a.send(result(next, "7") + "\n"));
  EXPECT_EQ(result("2", "7"), other.line());
}

TEST_F(RelayTest, AnAnswerThatStopsTakesItsAgentAlong) {
  start({"--stall-timeout", "1"});
  for (const std::size_t bytes : {2000, 60000, 300000}) {
    SCOPED_TRACE(bytes);
    Agent a(url(), "a");
    Host_Client half(url()), waiting(url());
    half.send(agent_call("a", "m", "[]", "1"));
    const std::string id = a.next();
    ASSERT_TRUE(
        waiting.send(agent_call("a", "m", "[]", "\"x\"") + agent_call("a", "m", "[]", "\"y\"")));
    a.next();
    a.next();
    ASSERT_TRUE(a.begin_answer(id, bytes));
    EXPECT_EQ(error("\"x\"", -32603, closed_text), waiting.line());
    EXPECT_EQ(error("\"y\"", -32603, closed_text), waiting.line());
    if (bytes < 65536) {
      EXPECT_EQ(error("1", -32603, closed_text), half.line());
      EXPECT_EQ(echoed, half.call(echo));
    } else {
      EXPECT_THAT(half.rest(), StartsWith(result("1", "[\"xxx").substr(0, 36)));
    }
    EXPECT_EQ("", a.rest());
    EXPECT_THAT(waiting.call(agent_call("a", "m", "[]", "1")), HasSubstr("'a' is not connected"));
  }
  EXPECT_EQ(3u, host_->logged("is closed: it stopped in a message."));
}

TEST_F(RelayTest, AnAgentThatSaysNoMoreEndsItsCallsAndItsIdIsFree) {
  start();
  const std::string owed = sleeper(1500, "9");
  for (const bool ends : {true, false}) {
    SCOPED_TRACE(ends ? "it ends its side" : "what it says cannot be attributed");
    const std::string id = ends ? "a" : "b";
    Agent a(url(), id);
    Host_Client client(url());
    client.send(agent_call(id, "m", "[]", "1"));
    a.next();
    a.send(owed + (ends ? "" : R"({"jsonrpc":"2.0","result":[1,})"));
    if (ends) a.half_close();
    EXPECT_EQ(error("1", -32603, closed_text), client.line());
    Agent again(url(), id);
    EXPECT_TRUE(a.silent(milliseconds(100))) << "all that before it was answered itself";
    EXPECT_EQ(result("9", "1500"), a.line());
  }
}

TEST_F(RelayTest, AnAgentWaitsForASlowRequesterLongerThanItsOwnStallTime) {
  start({"--stall-timeout", "60", "--max-message", "0"});
  const auto a = agent("a", {"--stall-timeout", "1"});
  reach("a");
  constexpr std::size_t bytes = 20'000'000;
  Host_Client slow(url());
  slow.send(agent_call("a", "blob", "{\"bytes\":" + std::to_string(bytes) + "}", "1"));
  const std::string begun = slow.bytes(1000);
  const milliseconds before = host_->cpu_time();
  std::this_thread::sleep_for(milliseconds(2500));
  EXPECT_LT(host_->cpu_time() - before, milliseconds(sanitized ? 1500 : 500)) << "it only waits";
  EXPECT_TRUE(result("1", blob(bytes)) == begun + slow.line());
}

TEST_F(RelayTest, ASlowReaderThatGoesOnIsNotStalled) {
  // Of a Unix socket the kernel says that it can be written when three quarters of 200 KB are free.
  start({"--stall-timeout", "1"});
  Host_Client slow(url());
  slow.send(request("blob", R"({"bytes":8000000})", "1"));
  for (int i = 0; i < 30; ++i) {
    ASSERT_EQ(10'000u, slow.bytes(10'000).size()) << i;
    std::this_thread::sleep_for(milliseconds(100));
  }
}

TEST_F(RelayTest, WhatASlowAgentHasSentReachesItsRequester) {
  start();
  Agent a(url(), "a");
  Host_Client client(url());
  client.send(agent_call("a", "m", "[]", "1"));
  ASSERT_TRUE(a.begin_answer(a.next(), 70'000));
  EXPECT_EQ(65'000u, client.bytes(65'000).size());
  ASSERT_TRUE(a.send("\"" + std::string(5000, 'y') + "\",\"z"));
  EXPECT_EQ(9000u, client.bytes(9000).size()) << "although more is to come";
}

TEST_F(RelayTest, AnAgentThatReadsNothingIsStillHeard) {
  start({"--max-queue", "400000"});
  Agent agent(url(), "a");
  Host_Client client(url());
  client.send(agent_call("a", "m", "1", "7"));
  const std::string id = agent.next();
  constexpr int calls = 40;
  const std::string text = "\"" + std::string(50'000, 'x') + "\"";
  std::string flood;
  for (int i = 0; i < calls; ++i) flood += request("echo", text, std::to_string(i));
  ASSERT_TRUE(agent.send(flood + result(id, "true") + "\n"));
  EXPECT_EQ(result("7", "true"), client.line());
  std::multiset<std::string> lines;
  for (int i = 0; i < calls; ++i) lines.insert(agent.line());
  int refused = 0;
  for (int i = 0; i < calls; ++i) {
    const std::string number = std::to_string(i);
    const std::size_t answered = lines.count(result(number, text));
    const std::size_t busy = lines.count(error(number, -32000, "Server busy"));
    EXPECT_EQ(1u, answered + busy) << i;
    refused += busy;
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(calls - refused, 8) << "as many as fit into the queue";
}

TEST_F(RelayTest, ALinkComesUpWhenItsHubDoes) {
  const auto a = agent("a");
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(wait_until([&] { return a->logged("is down") > static_cast<std::size_t>(i); }));
    start();
    reach("a");
    host_->stop();
  }
}

}  // namespace
