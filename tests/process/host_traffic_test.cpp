// What a client of the running host gets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

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
      {request("sleep", R"({"ms":1})", "1"), result("1", "1")},
      {request("solo", R"({"ms":1})", "1"), result("1", "1")},
      {request("subscribe", R"({"subjects":["x"]})", "1"), result("1", "true")},
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
  Host_Client client(url());
  for (const char* bad : {R"([1,"2"])", "5", R"({"a":1})"}) {
    EXPECT_THAT(client.call(request("sum", bad, "1")), HasSubstr(R"("code":-32602)")) << bad;
  }
  EXPECT_THAT(client.call(request("count", "5", "1")), HasSubstr(R"("code":-32602)"));
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
  for (const char* id : {"0", "7"}) {
    const std::string call =
        std::string(R"({"id":)") + id + R"(,"method":"filtered","params":[5]})";
    EXPECT_EQ(error(id, -32600, "Invalid Request"), client.call(call + "\n"));
    EXPECT_EQ(result("8", "1"), client.call(request("echo", "1", "8")));
  }
  for (const char* text : {"thrown on the loop", "thrown on the pool", "thrown by a creator",
                           "thrown by a filter", "awaits none"}) {
    host_->wait_for_log(text);
  }
}

TEST_F(HostTrafficTest, AnIdThatIsUsedTwiceAtOnceIsAnsweredTwice) {
  start();
  Host_Client client(url());
  client.send(request("sleep", R"({"ms":100})", "7") + request("sleep", R"({"ms":600})", "7"));
  EXPECT_EQ(result("7", "100"), client.line());
  EXPECT_EQ(result("7", "600"), client.line());
}

TEST_F(HostTrafficTest, AFullPoolAnswersThatItIsBusy) {
  start({}, "-n 1 -h 2 -l 1");
  Host_Client client(url());
  std::string storm;
  for (int i = 0; i < 20; ++i) storm += request("sleep", R"({"ms":200})", std::to_string(i));
  client.send(storm + request("echo", "1", "20"));
  std::multiset<std::string> answers;
  for (int i = 0; i < 21; ++i) answers.insert(client.line());
  EXPECT_EQ(1u, answers.count(result("20", "1")));
  int done = 0;
  for (int i = 0; i < 20; ++i) {
    const std::string id = std::to_string(i);
    const std::size_t slept = answers.count(result(id, "200"));
    EXPECT_EQ(1u, slept + answers.count(error(id, -32000, "Server busy"))) << i;
    done += slept;
  }
  EXPECT_GE(done, 2);
  EXPECT_LE(done, 5) << "one runs and two wait at a time";
}

TEST_F(HostTrafficTest, StreamedAnswersAreWholeAndDoNotWaitForEachOther) {
  start({"--max-queue", "262144", "--stall-timeout", "5"});
  Host_Client client(url());
  const std::string large = "[\"" + std::string(100000, 'x') + "\"]";
  const int counts[] = {0, 10, 20000, 200000, 200000, 500000};
  std::map<json_spirit::Value, std::size_t, json_spirit::value_lesser> expected, sizes;
  for (int id = 0; id < 6; ++id) {
    client.send(request("stream", "[" + std::to_string(counts[id]) + "]", std::to_string(id)));
    client.send(request("echo", large, std::to_string(id + 6)));
    expected[id] = counts[id];
    expected[id + 6] = 1;
  }
  for (int i = 0; i < 12; ++i) {
    json_spirit::Object answer = client.object();
    ASSERT_EQ(json_spirit::array_type, answer["result"].type());
    const json_spirit::Array& elements = answer["result"].get_array();
    sizes[answer["id"]] = elements.size();
    if (elements.size() > 1) {
      EXPECT_EQ(json_spirit::Value(elements.size() - 1), elements.back());
    }
  }
  EXPECT_EQ(expected, sizes);
}

TEST_F(HostTrafficTest, NotificationsGoToTheirSubscribersAndNotBack) {
  start();
  Host_Client one(url()), two(url());
  const std::string subscription =
      request("subscribe", R"({"subjects":["n","channel.forged","rpc.forged"]})", "1");
  EXPECT_EQ(result("1", "true"), one.call(subscription));
  EXPECT_EQ(result("1", "true"), two.call(subscription));
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
  json_spirit::Object came = watcher.object();
  EXPECT_EQ(json_spirit::Value("channel.registered"), came["method"]);
  json_spirit::Object params = came["params"].get_obj();
  EXPECT_EQ(json_spirit::Value(2), params["channel_type"]);
  EXPECT_THAT(params["channel_address"].get_str(), HasSubstr("127.0.0.1"));
  const std::string id = params["channel_id"].get_str();
  Host_Client lister(url());
  watcher.line();
  const std::string channels = lister.call(request("channels", "[]", "1"));
  EXPECT_THAT(channels, HasSubstr(R"({"address":"127.0.0.1:)" + std::to_string(client.port()) +
                                  R"(","id":")" + id + R"(","type":2})"));
  client.close();
  json_spirit::Object went = watcher.object();
  EXPECT_EQ(json_spirit::Value("channel.unregistered"), went["method"]);
  EXPECT_EQ(json_spirit::Value(id), went["params"].get_obj()["channel_id"]);
  EXPECT_THAT(lister.call(request("channels", "[]", "1")),
              ::testing::Not(HasSubstr(R"("id":")" + id + "\"")));
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
  const auto hex = [](int port) {
    char text[8];
    std::snprintf(text, sizeof text, ":%04X", port);
    return std::string(text);
  };
  const std::string local = hex(std::stoi(url().substr(url().rfind(':') + 1)));
  const auto timer = [&] {
    std::ifstream table("/proc/net/tcp");
    for (std::string line; std::getline(table, line);) {
      std::istringstream fields(line);
      std::string number, from, to, state, queues, kind;
      fields >> number >> from >> to >> state >> queues >> kind;
      if (from.substr(8) == local && to.substr(8) == hex(client.port())) return kind.substr(0, 2);
    }
    return std::string("none");
  };
  EXPECT_TRUE(wait_until([&] { return timer() == "02"; })) << "the keep-alive timer: " << timer();
}

}  // namespace
