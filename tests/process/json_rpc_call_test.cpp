// The command-line client against a host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>

#include "tests/process/call_process.h"
#include "tests/process/host_process.h"
#include "tests/support/scripted_http_server.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::size_t lines_of(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

std::string echo_as(const std::string& method) {
  return R"([{"method":")" + method +
         R"(","dll":")" SAMPLE_PLUGIN_DIR R"(/libecho.so","init":"make_echo"}])";
}

TEST(JsonRpcCallTest, PrintsTheResult) {
  Temporary_Directory directory;
  Host_Setup setup;
  setup.options = {"--listen", "tcp://127.0.0.1:0", "--listen", "unix://" + (directory / "s")};
  Host_Process host(setup);
  ASSERT_TRUE(host.ready());
  const std::string url = host.url();
  const std::string file = directory.write("params", R"({"b": 1.5})");
  struct Case {
    Words words;
    std::string output;
  };
  const Case cases[] = {
      {{url, "sum", "[1, 2]"}, "3\n"},
      {{host.urls()[1], "echo", "[-5]"}, "[-5]\n"},
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

TEST(JsonRpcCallTest, HeaderFramingAnnouncesTheLength) {
  Scripted_HTTP_Server server({{{""}}});
  const std::string url = "tcp://127.0.0.1:" + std::to_string(server.port());
  const std::string text = R"({"jsonrpc":"2.0","method":"m","params":[7]})";
  EXPECT_EQ("0||", run({"--framing", "header", "--notify", url, "m", "[7]"}));
  EXPECT_EQ("Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text, server.request());
}

TEST(JsonRpcCallTest, AnErrorUnderNoIdIsAnAnswerAndAClosedConnectionIsNone) {
  const std::string refusal =
      R"({"jsonrpc":"2.0","id":null,"error":{"code":-32600,"message":"x"}})";
  const std::string framed =
      "Content-Length: " + std::to_string(refusal.size()) + "\r\n\r\n" + refusal;
  Scripted_HTTP_Server server({{{framed, Scripted_Reply::close}}, {{"", Scripted_Reply::close}}});
  const std::string url = "tcp://127.0.0.1:" + std::to_string(server.port());
  EXPECT_EQ("1||{\"code\":-32600,\"message\":\"x\"}\n", run({"--framing", "header", url, "m"}));
  EXPECT_THAT(run({"--framing", "header", url, "m"}),
              StartsWith("2||json_rpc_call: the connection is lost"));
}

TEST(JsonRpcCallTest, APeerThatCannotBeUnderstoodIsLeft) {
  Scripted_HTTP_Server server({{{"no header\r\n\r\n", Scripted_Reply::stall}}});
  const std::string url = "tcp://127.0.0.1:" + std::to_string(server.port());
  EXPECT_EQ("2||json_rpc_call: the connection is lost: it cannot be understood\n",
            run({"--framing", "header", url, "m"}));
}

TEST(JsonRpcCallTest, AnErrorResponseIsStatus1) {
  Host_Process host;
  ASSERT_TRUE(host.ready());
  EXPECT_EQ("1||{\"code\":-32601,\"message\":\"Method not found\"}\n",
            run({host.url(), "nothing"}));
  const std::string large = "[\"" + std::string(11u << 20, 'x') + "\"]";
  EXPECT_THAT(run({host.url(), "echo", "-"}, large), StartsWith("1||{\"code\":-32600"));
}

TEST(JsonRpcCallTest, WhatCannotBeDoneIsOneLineAndStatus2) {
  Host_Process host;
  ASSERT_TRUE(host.ready());
  const std::string url = host.url();
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
    EXPECT_THAT(call.errors(), AllOf(StartsWith("json_rpc_call: "), HasSubstr(c.errors)));
    EXPECT_EQ(1u, lines_of(call.errors())) << call.errors();
  }
}

TEST(JsonRpcCallTest, LargeParamsAreSentWithoutBeingHeld) {
  Host_Process host;
  ASSERT_TRUE(host.ready());
  std::string ones = "[1";
  for (int i = 1; i < 4'000'000; ++i) ones += ",1";
  for (const char* framing : {"line", "header"}) {
    Call_Process call({"--framing", framing, host.url(), "count", "-"}, ones + "]");
    EXPECT_EQ(0, call.wait()) << call.errors();
    EXPECT_EQ("4000000\n", call.output());
    const long limit = sanitized ? 1'000'000 : 50'000;  // as a tree they are 160 MB
    EXPECT_GT(limit, call.most_resident_kilobytes()) << framing;
  }
}

TEST(JsonRpcCallTest, WrapsACallForAnAgent) {
  Host_Setup setup;
  setup.methods = echo_as("agent.call");
  Host_Process host(setup);
  ASSERT_TRUE(host.ready());
  EXPECT_EQ("0|{\"agent\":\"a\",\"method\":\"m\",\"params\":[1]}\n|",
            run({"--agent", "a", host.url(), "m", "[1]"}));
  EXPECT_EQ("0|{\"agent\":\"a\",\"method\":\"m\"}\n|", run({"--agent", "a", host.url(), "m"}));
}

TEST(JsonRpcCallTest, PrintsNotificationsUntilItHasEnough) {
  Host_Process host;
  ASSERT_TRUE(host.ready());
  for (const char* subject : {"news", "*"}) {
    SCOPED_TRACE(subject);
    Call_Process call({"--subscribe", subject, "--count", "3", host.url()});
    ASSERT_TRUE(wait_until([&] {
      EXPECT_EQ("0||", run({"--notify", host.url(), "news", R"({"n":[1]})"}));
      return call.ended();
    }));
    EXPECT_EQ(0, call.wait()) << call.errors();
    EXPECT_EQ(3u, lines_of(call.output())) << call.output();
    EXPECT_THAT(call.output(),
                HasSubstr("{\"jsonrpc\":\"2.0\",\"method\":\"news\",\"params\":{\"n\":[1]}}\n"));
    const bool all = subject == std::string("*");
    EXPECT_EQ(all, call.output().find("channel.registered") != std::string::npos);
    // Its own end of the connection would be channel 1.
    EXPECT_EQ(std::string::npos, call.output().find(R"("channel_id":"1")"));
  }
}

TEST(JsonRpcCallTest, ASubscriptionEndsWithASignalOrWithTheHost) {
  Host_Process host;
  ASSERT_TRUE(host.ready());
  Call_Process interrupted({"--subscribe", "news", host.url()});
  Call_Process lost({"--subscribe", "news", host.url()});
  ASSERT_TRUE(wait_until([&] {
    EXPECT_EQ("0||", run({"--notify", host.url(), "news"}));
    return lines_of(interrupted.output()) > 0 && lines_of(lost.output()) > 0;
  }));
  interrupted.terminate();
  EXPECT_EQ(0, interrupted.wait());
  EXPECT_EQ("", interrupted.errors());
  host.stop();
  EXPECT_EQ(2, lost.wait());
  EXPECT_THAT(lost.errors(), HasSubstr("the connection is lost"));
}

TEST(JsonRpcCallTest, TriesAgainWithinItsLimits) {
  Temporary_Directory directory;
  const std::string url = "unix://" + (directory / "s");
  Call_Process patient({"--retries", "-1", url, "echo", "@" + directory.write("p", "[1]")});
  Call_Process hasty({"--retry-seconds", "1", url, "echo"});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(2, hasty.wait());
  EXPECT_LE(std::chrono::milliseconds(900), std::chrono::steady_clock::now() - begin);
  Host_Setup setup;
  setup.options = {"--listen", url};
  Host_Process host(setup);
  ASSERT_TRUE(host.ready());
  EXPECT_EQ(0, patient.wait()) << patient.errors();
  EXPECT_EQ("[1]\n", patient.output());
}

TEST(JsonRpcCallTest, MeasuresHowLongCallsTake) {
  Host_Process host;
  ASSERT_TRUE(host.ready());
  Call_Process call({"--bench", "500", "--concurrency", "4", host.url(), "echo", "[1]"});
  EXPECT_EQ(0, call.wait()) << call.errors();
  std::istringstream lines(call.output());
  std::string name, unit;
  double calls = 0, seconds = 0, rate = 0;
  lines >> name >> calls >> name >> seconds >> name >> rate;
  EXPECT_EQ(500, calls);
  EXPECT_NEAR(calls / seconds, rate, rate / 10);
  for (double before = 0, time = 0; lines >> name >> time >> unit; before = time) {
    EXPECT_LE(before, time) << name;
    EXPECT_LT(time, seconds * 1000) << name;
  }
  EXPECT_EQ("max", name);
  EXPECT_THAT(run({"--bench", "9", host.url(), "nothing"}),
              AllOf(StartsWith("1|calls    9\n"), EndsWith("\"Method not found\"}\n")));
}

}  // namespace
