// How the host ends.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>

#include "tests/process/host_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

const std::string refused = error("1", -32001, "Server is stopping");

class HostStopTest : public Host_Fixture {
protected:
  /// A host, and a client that it serves.
  void start(Words options = {}) {
    Host_Fixture::start(std::move(options));
    client_ = std::make_unique<Host_Client>(url());
    EXPECT_EQ(echoed, client_->call(echo));
  }
  /// The test itself stops the host.
  void TearDown() override {}
  /// Sends a request that takes that long, and returns when it is in work.
  void begin(const std::string& method, int ms) {
    EXPECT_EQ(echoed,
              client_->call(request(method, "{\"ms\":" + std::to_string(ms) + "}", "5") + echo));
  }
  /// The host ends its side, and then the client its own.
  std::string rest() {
    const std::string text = client_->rest();
    client_->close();
    return text;
  }

  std::unique_ptr<Host_Client> client_;
};

TEST_F(HostStopTest, EndsAtOnceWhenNothingIsInWork) {
  for (const int signal : {SIGTERM, SIGINT}) {
    start();
    host_->signal(signal);
    EXPECT_EQ("", rest());
    const steady_clock::time_point begin = steady_clock::now();
    EXPECT_EQ(0, host_->wait()) << host_->log();
    EXPECT_LT(steady_clock::now() - begin, milliseconds(5000)) << "no drain time";
    EXPECT_EQ(0u, host_->logged("Handlers still run"));
  }
}

TEST_F(HostStopTest, RequestsInWorkAreAnsweredInTimeOrThatTheServerIsStopping) {
  const struct {
    const char* drain;
    int ms;
    std::string answer;
    std::size_t left;
  } cases[] = {{"10", 500, result("5", "500"), 0},
               {"1", 600000, error("5", -32001, "Server is stopping"), 1}};
  for (const auto& c : cases) {
    for (const char* method : {"sleep", "solo"}) {
      start({"--drain", c.drain});
      begin(method, c.ms);
      host_->signal(SIGTERM);
      EXPECT_EQ(c.answer + "\n", rest());
      EXPECT_EQ(0, host_->wait());
      EXPECT_EQ(c.left, host_->logged("Handlers still run"));
    }
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
  EXPECT_EQ(result("5", "3000") + "\n", rest());
  EXPECT_EQ("", other.rest());
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
