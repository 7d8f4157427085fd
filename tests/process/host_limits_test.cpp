// What happens at each limit of the host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/process/host_fixture.h"

namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;

class HostLimitsTest : public Host_Fixture {};

TEST_F(HostLimitsTest, RequestsWaitWhileTooManyAreInWork) {
  start({"--max-pending", "2"});
  Host_Client client(url());
  std::string all;
  for (const char* id : {"2", "3"}) all += sleeper(300, id);
  client.send(all + echo + all + echo);
  EXPECT_THAT(client.line(), HasSubstr(":300}")) << "the echo waits for an answer to be there";
  std::vector<std::string> rest;
  for (int i = 0; i < 5; ++i) rest.push_back(client.line());
  EXPECT_EQ(2, std::count(rest.begin(), rest.end(), echoed));

  const auto start = std::chrono::steady_clock::now();
  const std::string sleep = sleeper(300, "2");
  const std::string notification = request("echo", "1");
  client.send(sleep + sleep + notification + sleep + notification + sleep);
  for (int i = 0; i < 4; ++i) client.line();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(550))
      << "notifications that wait are not counted";
}

TEST_F(HostLimitsTest, AcceptingPausesWhileTooManyConnectionsAreOpen) {
  start({"--max-connections", "2"});
  auto one = std::make_unique<Host_Client>(url());
  Host_Client two(url());
  EXPECT_EQ(echoed, one->call(echo));
  EXPECT_EQ(echoed, two.call(echo));
  Host_Client three(url());
  ASSERT_TRUE(three.connected());
  three.send(echo);
  host_->wait_for_log("Accepting pauses at " + url() + ": 2 connections are open.");
  EXPECT_TRUE(three.silent(milliseconds(300)));
  EXPECT_EQ(echoed, two.call(echo));
  one.reset();
  EXPECT_EQ(echoed, three.line());
  host_->wait_for_log("Accepting goes on at " + url());
}

TEST_F(HostLimitsTest, WithoutDescriptorsAcceptingWaitsAndDoesNotSpin) {
  start({});
  const std::size_t idle = host_->descriptors();
  // UndefinedBehaviorSanitizer looks at the first object of each class through a pipe, and takes it
  // for broken where it gets none: so one connection comes, is ticked, and goes before.
  if (sanitized) {
    Host_Client early(url());
    EXPECT_EQ(echoed, early.call(echo));
    std::this_thread::sleep_for(milliseconds(2500));
  }
  host_->wait_for_descriptors(idle);
  std::vector<std::unique_ptr<Host_Client>> clients;
  clients.push_back(std::make_unique<Host_Client>(url()));
  EXPECT_EQ(echoed, clients[0]->call(echo));
  rlimit limit{}, before{};
  ::prlimit(host_->pid(), RLIMIT_NOFILE, nullptr, &before);
  limit = before;
  limit.rlim_cur = host_->descriptors() + 1;
  ASSERT_EQ(0, ::prlimit(host_->pid(), RLIMIT_NOFILE, &limit, nullptr));
  for (int i = 0; i < 4; ++i) {
    clients.push_back(std::make_unique<Host_Client>(url()));
    clients.back()->send(echo);
  }
  host_->wait_for_log("Accepting pauses at " + url() + ": ");
  const milliseconds cpu = host_->cpu_time();
  EXPECT_TRUE(clients[4]->silent(milliseconds(1500)));
  EXPECT_LT(host_->cpu_time() - cpu, milliseconds(500));
  EXPECT_EQ(echoed, clients[0]->call(echo)) << "who is connected is served";

  clients[0].reset();
  clients[1].reset();
  EXPECT_EQ(echoed, clients[2]->line()) << "room again";
  ASSERT_EQ(0, ::prlimit(host_->pid(), RLIMIT_NOFILE, &before, nullptr));
  EXPECT_EQ(echoed, clients[4]->line());
}

TEST_F(HostLimitsTest, AStalledPeerIsClosed) {
  start({"--stall-timeout", "1"});
  Host_Client half(url()), half_header(url()), between(url()), broken(url()), owed(url());
  half.send(echo + R"({"jsonrpc":"2.0","method":"echo")");
  half_header.send("Content-Length: 100\r\n\r\n{");
  between.send(echo + " ");
  broken.send("no json, and no line feed");
  owed.send(sleeper(2500));

  EXPECT_EQ(echoed + "\n", half.rest());
  EXPECT_EQ("", half_header.rest());
  EXPECT_EQ(2u, host_->logged("it stopped in a message"));
  EXPECT_EQ(result("1", "2500"), owed.line());
  EXPECT_EQ(echoed, between.line());
  EXPECT_EQ(echoed, between.call(echo));
  broken.send("\n" + echo);
  EXPECT_EQ(error("null", -32700, "Parse error"), broken.line());
  EXPECT_EQ(echoed, broken.line());
}

TEST_F(HostLimitsTest, AnIdleChannelIsClosedUnlessItIsSubscribedOrOwedAnAnswer) {
  start({"--idle-timeout", "1"});
  Host_Client idle(url()), subscribed(url()), owed(url()), mute(url());
  EXPECT_EQ(echoed, idle.call(echo));
  EXPECT_EQ(result("1", "true"), subscribed.call(subscription()));
  owed.send(sleeper(3000));
  EXPECT_EQ("", idle.rest());
  EXPECT_EQ("", mute.rest());
  EXPECT_EQ(2u, host_->logged("it is idle"));
  EXPECT_EQ(result("1", "3000"), owed.line());
  EXPECT_EQ(echoed, subscribed.call(echo));
}

TEST_F(HostLimitsTest, ASlowReaderHoldsNobodyAndGetsAll) {
  start({"--max-queue", "1000000", "--threads", "1", "--stall-timeout", "60"});
  constexpr int rounds = sanitized ? 20 : 40;
  const std::string text = "\"" + std::string(1u << 20, 'x') + "\"";
  Host_Client slow(url()), other(url());
  std::thread sender([&] {
    for (int i = 0; i < rounds; ++i) slow.send(request("echo", text, std::to_string(i)));
  });
  for (int i = 0; i < 200; ++i) EXPECT_EQ(echoed, other.call(echo));
  if (!sanitized) {
    EXPECT_LT(host_->resident_bytes(), 60u << 20) << "reading from it pauses";
  }
  for (int i = 0; i < rounds; ++i) ASSERT_EQ(result(std::to_string(i), text), slow.line());
  sender.join();
}

}  // namespace
