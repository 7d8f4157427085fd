// How the host ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/process/host_client.h"
#include "tests/process/host_process.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

const std::string echo = request("echo", "1", "1");
const std::string echoed = result("1", "1");
const std::string refused = error("1", -32001, "Server is stopping");

class HostStopTest : public ::testing::Test {
protected:
  void start(std::vector<std::string> options = {}) {
    Host_Setup setup;
    setup.options = std::move(options);
    host_ = std::make_unique<Host_Process>(setup);
    ASSERT_TRUE(host_->ready());
    client_ = std::make_unique<Host_Client>(host_->url());
    EXPECT_EQ(echoed, client_->call(echo));
  }
  /// Sends a request that takes that long, and returns when it is in work.
  void begin(const std::string& method, int ms) {
    EXPECT_EQ(echoed,
              client_->call(request(method, "{\"ms\":" + std::to_string(ms) + "}", "5") + echo));
  }

  std::unique_ptr<Host_Process> host_;
  std::unique_ptr<Host_Client> client_;
};

TEST_F(HostStopTest, EndsAtOnceWhenNothingIsInWork) {
  for (const int signal : {SIGTERM, SIGINT}) {
    start();
    host_->signal(signal);
    EXPECT_EQ("", client_->rest());
    client_->close();
    const steady_clock::time_point begin = steady_clock::now();
    EXPECT_EQ(0, host_->wait()) << host_->log();
    EXPECT_LT(steady_clock::now() - begin, milliseconds(5000)) << "no drain time";
    EXPECT_EQ(0u, host_->logged("Handlers still run"));
  }
}

TEST_F(HostStopTest, RequestsInWorkAreAnswered) {
  for (const char* method : {"sleep", "solo"}) {
    start();
    begin(method, 500);
    host_->signal(SIGTERM);
    EXPECT_EQ(result("5", "500") + "\n", client_->rest());
    client_->close();
    EXPECT_EQ(0, host_->wait());
    EXPECT_EQ(0u, host_->logged("Handlers still run"));
  }
}

TEST_F(HostStopTest, WhatTakesTooLongIsAnsweredThatTheServerIsStopping) {
  for (const char* method : {"sleep", "solo"}) {
    start({"--drain", "1"});
    begin(method, 600000);
    host_->signal(SIGTERM);
    EXPECT_EQ(error("5", -32001, "Server is stopping") + "\n", client_->rest());
    client_->close();
    EXPECT_EQ(0, host_->wait());
    EXPECT_EQ(1u, host_->logged("Handlers still run"));
  }
}

TEST_F(HostStopTest, AHandlerThatHoldsItsLoopDoesNotHoldTheStop) {
  start({"--drain", "1", "--threads", "2"});
  Host_Client other(host_->url());  // on the other loop
  EXPECT_EQ(echoed, other.call(echo));
  client_->send(request("hold", "[600000]", "5"));
  EXPECT_EQ(echoed, other.call(echo));
  host_->signal(SIGTERM);
  EXPECT_EQ(0, host_->wait(milliseconds(15000)));
}

TEST_F(HostStopTest, NewRequestsAndConnectionsAreRefusedMeanwhile) {
  start();
  begin("sleep", 3000);
  Host_Client other(host_->url());
  EXPECT_EQ(echoed, other.call(echo));
  host_->signal(SIGTERM);
  EXPECT_TRUE(wait_until([&] {
    const std::string answer = other.call(echo);
    EXPECT_TRUE(answer == echoed || answer == refused) << answer;
    return answer == refused;
  }));
  EXPECT_FALSE(Host_Client(host_->url()).connected());
  EXPECT_EQ(result("5", "3000") + "\n", client_->rest());
  EXPECT_EQ("", other.rest());
  client_->close();
  other.close();
  EXPECT_EQ(0, host_->wait());
}

TEST_F(HostStopTest, ASecondSignalEndsItAtOnce) {
  start({"--drain", "600"});
  begin("sleep", 600000);
  host_->signal(SIGTERM);
  host_->wait_for_log("Stopping on signal 15.");
  host_->signal(SIGTERM);
  EXPECT_EQ(128 + SIGTERM, host_->wait());
}

TEST_F(HostStopTest, APeerThatTakesNothingDoesNotHoldTheStop) {
  start({"--drain", "1"});
  const std::string large = request("echo", "\"" + std::string(1u << 20, 'x') + "\"", "1");
  std::string much;
  for (int i = 0; i < 9; ++i) much += large;
  EXPECT_TRUE(client_->send(much));
  host_->signal(SIGTERM);
  EXPECT_EQ(0, host_->wait());
}

}  // namespace
