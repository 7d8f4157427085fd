// The command-line client against a host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>

#include "tests/process/call_process.h"
#include "tests/process/host_fixture.h"
#include "tests/support/scripted_http_server.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::size_t lines_of(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

class JsonRpcCallTest : public Host_Fixture {};

TEST_F(JsonRpcCallTest, PrintsTheResult) {
  Temporary_Directory directory;
  start({"--listen", "tcp://127.0.0.1:0", "--listen", "unix://" + (directory / "s")});
  const std::string url = Host_Fixture::url();
  const std::string file = directory.write("params", R"({"b": 1.5})");
  struct Case {
    Words words;
    std::string output;
  };
  const Case cases[] = {
      {{url, "sum", "[1, 2]"}, "3\n"},
      {{host_->urls()[1], "echo", "[-5]"}, "[-5]\n"},
      {{url, "echo"}, "null\n"},
      {{"--pretty", url, "echo", R"({"a":[1]})"}, "{\n    \"a\": [\n        1\n    ]\n}\n"},
      {{url, "echo", R"("x\ny")"}, "\"x\\ny\"\n"},
      {{"--raw", url, "echo", R"("x\ny")"}, "x\ny\n"},
      {{"--raw", url, "echo", "[\"x\"]"}, "[\"x\"]\n"},
      {{"--framing", "header", url, "echo", "[1]"}, "[1]\n"},
      {{url, "echo", "@" + file}, "{\"b\":1.5}\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.words.back());
    EXPECT_EQ("0|" + c.output + "|", run(c.words));
  }
  EXPECT_EQ("0|[7]\n|", run({url, "echo", "-"}, "[7]"));
  EXPECT_THAT(run({"--verbose", url, "echo"}), StartsWith("0|null\n|info: "));
}

TEST_F(JsonRpcCallTest, HeadersTellLengthsBothWays) {
  const auto framed = [](const std::string& text) {
    return "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text;
  };
  const std::string refusal =
      R"({"jsonrpc":"2.0","id":null,"error":{"code":-32600,"message":"x"}})";
  const struct {
    std::string answer;
    Scripted_Reply::Then then;
    std::string outcome;
  } cases[] = {
      {framed(refusal), Scripted_Reply::close, "1||{\"code\":-32600,\"message\":\"x\"}\n"},
      {"", Scripted_Reply::close, "2||json_rpc_call: the connection is lost"},
      {"no header\r\n\r\n", Scripted_Reply::stall,
       "2||json_rpc_call: the connection is lost: it cannot be understood\n"},
  };
  for (const auto& c : cases) {
    Scripted_HTTP_Server server({{{c.answer, c.then}}});
    EXPECT_THAT(run({"--framing", "header", server.url("tcp"), "m"}), StartsWith(c.outcome));
  }
  Scripted_HTTP_Server server({{{""}}});
  EXPECT_EQ("0||", run({"--framing", "header", "--notify", server.url("tcp"), "m", "[7]"}));
  EXPECT_EQ(framed(R"({"jsonrpc":"2.0","method":"m","params":[7]})"), server.request());
}

TEST_F(JsonRpcCallTest, AnErrorResponseIsStatus1) {
  start();
  EXPECT_EQ("1||{\"code\":-32601,\"message\":\"Method not found\"}\n", run({url(), "nothing"}));
  const std::string large = "[\"" + std::string(11u << 20, 'x') + "\"]";
  EXPECT_THAT(run({url(), "echo", "-"}, large), StartsWith("1||{\"code\":-32600"));
}

TEST_F(JsonRpcCallTest, WhatCannotBeDoneIsOneLineAndStatus2) {
  start();
  const std::string url = Host_Fixture::url();
  const std::string cut = "[\"" + std::string(300'000, 'x') + "\",";
  struct Case {
    Words words;
    std::string input;
    std::string errors;
  };
  const Case cases[] = {
      {{}, "", "URL"},
      {{"--unknown", url, "echo"}, "", "--unknown"},
      {{url}, "", "METHOD"},
      {{"--timeout", "0", url, "echo"}, "", "--timeout"},
      {{"--count", "1", url, "echo"}, "", "--subscribe"},
      {{"ftp://127.0.0.1:1", "echo"}, "", "ftp://127.0.0.1:1"},
      {{"unix:///nowhere/socket", "echo"}, "", "No such file"},
      {{url, "echo", "[1,x]"}, "", "PARAMS is no JSON"},
      {{url, "echo", "[1] [2]"}, "", "PARAMS is no JSON"},
      {{url, "echo", "@/nowhere"}, "", "/nowhere"},
      {{url, "echo", "-"}, "[1", "standard input is no JSON"},
      {{url, "echo", "-"}, "", "standard input is no JSON"},
      {{url, "echo", "-"}, cut + "x", "at byte 300005"},
      {{url, "echo", "-"}, std::string(1000, '['), "too deep"},
      {{"--timeout", "1", url, "sleep", R"({"ms":20000})"}, "", "no answer came within 1 s"},
      {{"--notify", "tcp://127.0.0.1:1", "echo"}, "", "tcp://127.0.0.1:1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.errors);
    Call_Process call(c.words, c.input);
    EXPECT_EQ(2, call.wait());
    EXPECT_EQ("", call.output());
    EXPECT_THAT(call.log(), AllOf(StartsWith("json_rpc_call: "), HasSubstr(c.errors)));
    EXPECT_EQ(1u, lines_of(call.log())) << call.log();
  }
}

TEST_F(JsonRpcCallTest, LargeParamsAreSentWithoutBeingHeld) {
  start();
  std::string ones = "[1";
  for (int i = 1; i < 4'000'000; ++i) ones += ",1";
  for (const char* framing : {"line", "header"}) {
    Call_Process call({"--framing", framing, url(), "count", "-"}, ones + "]");
    const auto [status, kilobytes] = call.wait_and_watch();
    EXPECT_EQ(0, status) << call.log();
    EXPECT_EQ("4000000\n", call.output());
    EXPECT_GT(sanitized ? 1'000'000 : 50'000, kilobytes) << framing;  // as a tree they are 160 MB
  }
}

TEST_F(JsonRpcCallTest, WrapsACallForAnAgent) {
  Host_Setup setup;
  setup.methods =
      R"([{"method":"agent.call","dll":")" SAMPLE_PLUGIN_DIR R"(/libecho.so","init":"make_echo"}])";
  start_as(setup);
  EXPECT_EQ("0|{\"agent\":\"a\",\"method\":\"m\",\"params\":[1]}\n|",
            run({"--agent", "a", url(), "m", "[1]"}));
  EXPECT_EQ("0|{\"agent\":\"a\",\"method\":\"m\"}\n|", run({"--agent", "a", url(), "m"}));
}

TEST_F(JsonRpcCallTest, PrintsNotificationsUntilItHasEnough) {
  start();
  for (const char* subject : {"news", "*"}) {
    SCOPED_TRACE(subject);
    Call_Process call({"--subscribe", subject, "--count", "3", url()});
    ASSERT_TRUE(wait_until([&] {
      EXPECT_EQ("0||", run({"--notify", url(), "news", R"({"n":[1]})"}));
      return call.ended();
    }));
    EXPECT_EQ(0, call.wait()) << call.log();
    EXPECT_EQ(3u, lines_of(call.output())) << call.output();
    EXPECT_THAT(call.output(),
                HasSubstr("{\"jsonrpc\":\"2.0\",\"method\":\"news\",\"params\":{\"n\":[1]}}\n"));
    const bool all = subject == std::string("*");
    EXPECT_EQ(all, call.output().find("channel.registered") != std::string::npos);
    // Its own end of the connection would be channel 1.
    EXPECT_EQ(std::string::npos, call.output().find(R"("channel_id":"1")"));
  }
}

TEST_F(JsonRpcCallTest, ASubscriptionEndsWithASignalOrWithTheHost) {
  start();
  Call_Process interrupted({"--subscribe", "news", url()});
  Call_Process lost({"--subscribe", "news", url()});
  ASSERT_TRUE(wait_until([&] {
    EXPECT_EQ("0||", run({"--notify", url(), "news"}));
    return lines_of(interrupted.output()) > 0 && lines_of(lost.output()) > 0;
  }));
  interrupted.signal(SIGTERM);
  EXPECT_EQ(0, interrupted.wait());
  EXPECT_EQ("", interrupted.log());
  host_->stop();
  EXPECT_EQ(2, lost.wait());
  EXPECT_THAT(lost.log(), HasSubstr("the connection is lost"));
}

TEST_F(JsonRpcCallTest, TriesAgainWithinItsLimits) {
  Temporary_Directory directory;
  const std::string url = "unix://" + (directory / "s");
  Call_Process patient({"--retries", "-1", url, "echo", "@" + directory.write("p", "[1]")});
  Call_Process hasty({"--retry-seconds", "1", url, "echo"});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(2, hasty.wait());
  EXPECT_LE(std::chrono::milliseconds(900), std::chrono::steady_clock::now() - begin);
  start({"--listen", url});
  EXPECT_EQ(0, patient.wait()) << patient.log();
  EXPECT_EQ("[1]\n", patient.output());
}

TEST_F(JsonRpcCallTest, MeasuresHowLongCallsTake) {
  start();
  Call_Process call({"--bench", "500", "--concurrency", "4", url(), "echo", "[1]"});
  EXPECT_EQ(0, call.wait()) << call.log();
  std::istringstream lines(call.output());
  std::string name, unit;
  double calls = 0, seconds = 0, rate = 0;
  lines >> name >> calls >> name >> seconds >> name >> rate;
  EXPECT_EQ(500, calls);
  EXPECT_NEAR(calls / seconds, rate, rate / 10);
  for (double before = 0, time = 0; lines >> name >> time >> unit; before = time) {
    EXPECT_LE(before, time) << name;
  }
  EXPECT_EQ("max", name);
}

}  // namespace
