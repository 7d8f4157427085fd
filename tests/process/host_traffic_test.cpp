// What a client of the running host gets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <utility>

#include "tests/process/host_fixture.h"

namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;

const std::string parse_error = error("null", -32700, "Parse error");
const std::string invalid = error("null", -32600, "Invalid Request");

class HostTrafficTest : public Host_Fixture {};

TEST_F(HostTrafficTest, AnswersToTheLetter) {
  start();
  const struct {
    std::string request;
    std::string answer;
  } cases[] = {
      {R"({"jsonrpc":"2.0","method":"sum","params":[1,2],"id":3})",
       R"({"jsonrpc":"2.0","id":3,"result":3})"},
      {R"({"jsonrpc":"2.0","method":"nothing","id":4})",
       R"({"jsonrpc":"2.0","id":4,"error":{"code":-32601,"message":"Method not found"}})"},
      {R"({"jsonrpc":"2.0","id":"a","method":"sum","params":[0.1,2]})", result("\"a\"", "2.1")},
      {request("sum", "[]", "1"), result("1", "0")},
      {request("sum", "[9223372036854775807,1]", "1"), result("1", "9223372036854775808")},
      {request("sum", "[18446744073709551615,1]", "1"), result("1", "18446744073709551616.0")},
      {request("echo", R"({"a":[1,null,"é\u0000"]})", "1"),
       result("1", R"({"a":[1,null,"é\u0000"]})")},
      {request("count", R"([1,[2,3],{"a":[4]},"5",null])", "1"), result("1", "5")},
      {sleeper(1), result("1", "1")},
      {request("solo", R"({"ms":1})", "1"), result("1", "1")},
      {subscription(), result("1", "true")},
      {"x", parse_error},
      {"[]", invalid},
      {R"({"id":4})", error("4", -32600, "Invalid Request")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.request);
    Host_Client client(url());
    EXPECT_EQ(c.answer, client.call(c.request + "\n"));
    EXPECT_EQ(result("1", "true"), client.call(request("echo", "true", "1")));
  }
  const std::pair<const char*, const char*> refused[] = {
      {"sum", R"([1,"2"])"}, {"sum", R"({"a":1})"},
      {"count", "5"},        {"sleep", R"({"ms":-1})"},
      {"solo", R"("soon")"}, {"blob", R"({"bytes":"many"})"},
      {"subscribe", "[]"},   {"subscribe", R"({"subjects":[1]})"}};
  Host_Client client(url());
  for (const auto& [method, params] : refused) {
    EXPECT_THAT(client.call(request(method, params, "1")), HasSubstr(R"("code":-32602)")) << params;
  }
}

TEST_F(HostTrafficTest, EveryRequestIsAnsweredOnceWhateverItsHandlerDoes) {
  start();
  Host_Client client(url());
  for (const char* method : {"throw", "pool_throw", "solo_throw", "forget", "solo_forget"}) {
    SCOPED_TRACE(method);
    EXPECT_EQ(error("7", -32603, "Internal error"), client.call(request(method, "[]", "7")));
    EXPECT_EQ(result("8", "1"), client.call(request("echo", "1", "8"))) << "nothing else came";
    ASSERT_TRUE(client.send(request(method, "[]")));
    EXPECT_EQ(result("8", "1"), client.call(request("echo", "1", "8"))) << "to a notification";
  }
  EXPECT_EQ(result("7", "1"), client.call(request("twice", "[]", "7")));
  EXPECT_EQ(result("8", "1"), client.call(request("echo", "1", "8")));
  for (const char* text : {"thrown on the loop", "thrown on the pool", "awaits none"}) {
    host_->wait_for_log(text);
  }
}

TEST_F(HostTrafficTest, AnIdThatIsUsedTwiceAtOnceIsAnsweredTwice) {
  start();
  Host_Client client(url());
  client.send(sleeper(100, "7") + sleeper(600, "7"));
  EXPECT_EQ(result("7", "100"), client.line());
  EXPECT_EQ(result("7", "600"), client.line());
}

TEST_F(HostTrafficTest, StreamedAnswersAreWholeAndDoNotWaitForEachOther) {
  start({"--max-queue", "262144", "--stall-timeout", "5"});
  Host_Client client(url());
  const std::string large = "[\"" + std::string(100000, 'x') + "\"]";
  const std::size_t sizes[] = {0, 10, 120'000, 1'300'000, 1'300'000, 3'400'000};
  std::multiset<std::string> expected, got;
  for (int i = 0; i < 6; ++i) {
    const std::string streamed = std::to_string(i), other = std::to_string(i + 6);
    client.send(request("blob", "{\"bytes\":" + std::to_string(sizes[i]) + "}", streamed) +
                request("echo", large, other));
    expected.insert({result(streamed, blob(sizes[i])), result(other, large)});
  }
  while (got.size() < expected.size()) got.insert(client.line());
  EXPECT_TRUE(expected == got);
}

TEST_F(HostTrafficTest, NotificationsGoToTheirSubscribersAndNotBack) {
  start();
  Host_Client one(url()), two(url());
  const std::string subscribe =
      request("subscribe", R"({"subjects":["n","channel.forged","rpc.forged"]})", "1");
  EXPECT_EQ(result("1", "true"), one.call(subscribe));
  EXPECT_EQ(result("1", "true"), two.call(subscribe));
  const std::string fence = request("echo", "0", "9"), fenced = result("9", "0");
  EXPECT_EQ(fenced, one.call(request("channel.forged", "[]") + request("rpc.forged", "[]") +
                             request("m", "[]") + request("n", "[5]") + fence));
  EXPECT_EQ(R"({"jsonrpc":"2.0","method":"n","params":[5]})", two.line());
  EXPECT_EQ(fenced, two.call(fence));
  EXPECT_EQ(fenced, two.call(request("n", "[6]") + fence));
  EXPECT_EQ(R"({"jsonrpc":"2.0","method":"n","params":[6]})", one.line());
}

TEST_F(HostTrafficTest, TheComingAndGoingOfChannelsIsAnnounced) {
  start();
  Host_Client watcher(url());
  EXPECT_EQ(
      result("1", "true"),
      watcher.call(request("subscribe",
                           R"({"subjects":["channel.registered","channel.unregistered"]})", "1")));
  Host_Client client(url());
  const std::string id = watcher.object()["params"].get_obj()["channel_id"].get_str();
  const std::string listed = R"({"address":"127.0.0.1:)" + std::to_string(client.port()) +
                             R"(","id":")" + id + R"(","type":2})";
  const std::string channels = request("channels", "[]", "1");
  EXPECT_THAT(watcher.call(channels), HasSubstr(listed));
  client.close();
  json_spirit::Object went = watcher.object();
  EXPECT_EQ(json_spirit::Value("channel.unregistered"), went["method"]);
  EXPECT_EQ(json_spirit::Value(id), went["params"].get_obj()["channel_id"]);
  EXPECT_THAT(watcher.call(channels), ::testing::Not(HasSubstr(listed)));
}

TEST_F(HostTrafficTest, AHandlerThatHoldsItsLoopHoldsNoOtherAndIsReported) {
  start({"--threads", "2"});
  Host_Client holder(url());
  EXPECT_EQ(result("2", "2"), holder.call(request("echo", "2", "2")));
  Host_Client other(url());  // on the other loop: they take turns
  EXPECT_EQ(result("2", "2"), other.call(request("echo", "2", "2")));
  holder.send(request("hold", "[1300]", "1"));
  EXPECT_EQ(result("2", "2"), other.call(request("echo", "2", "2")));
  EXPECT_TRUE(holder.silent(milliseconds(0))) << "it was not waited for";
  EXPECT_EQ(result("1", "true"), holder.line());
  host_->wait_for_log("The handler of 'hold' held its loop for ");
}

TEST_F(HostTrafficTest, TcpConnectionsAreKeptAlive) {
  start();
  Host_Client client(url());
  client.call(request("echo", "1", "1"));
  const auto address = [](int port) {
    char text[16];
    std::snprintf(text, sizeof text, "0100007F:%04X ", port);
    return std::string(text);
  };
  // Addresses, state, queues, and the timer that runs: 2 is that of keep-alive.
  const std::string row = address(std::stoi(url().substr(url().rfind(':') + 1))) +
                          address(client.port()) + "01 00000000:00000000 02:";
  EXPECT_TRUE(
      wait_until([&] { return read_file("/proc/net/tcp").find(row) != std::string::npos; }));
}

}  // namespace
