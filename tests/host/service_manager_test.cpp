#include "host/service_manager.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/support/log_capture.h"

namespace {

using namespace std::chrono_literals;

/// The manager's end: a datagram socket that the environment names.
class ServiceManagerTest : public ::testing::Test {
protected:
  ServiceManagerTest() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string name = "json_rpc_manager_test." + std::to_string(::getpid());
    name.copy(address.sun_path + 1, name.size());  // an abstract one leaves no file behind
    const socklen_t length = offsetof(sockaddr_un, sun_path) + 1 + name.size();
    EXPECT_EQ(0, ::bind(socket_, reinterpret_cast<const sockaddr*>(&address), length));
    ::setenv("NOTIFY_SOCKET", ('@' + name).c_str(), 1);
    ::setenv("WATCHDOG_USEC", "40000", 1);
  }
  ~ServiceManagerTest() override {
    ::close(socket_);
    ::unsetenv("NOTIFY_SOCKET");
    ::unsetenv("WATCHDOG_USEC");
  }

  /// The next message; "" when none comes for so long.
  std::string next(std::chrono::milliseconds patience) const {
    const timeval time = {patience.count() / 1000, patience.count() % 1000 * 1000};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    char text[256];
    const ssize_t length = ::recv(socket_, text, sizeof text, 0);
    return length > 0 ? std::string(text, length) : std::string();
  }

  void drain() const {
    while (!next(1ms).empty()) {
    }
  }

  const Log_Capture log_;
  const int socket_;
};

TEST_F(ServiceManagerTest, TellsTheManagerWhatHappens) {
  Service_Manager manager;
  manager.ready("serving\nREADY=0");
  EXPECT_EQ("READY=1\nSTATUS=serving", next(10s));
  manager.status("busy");
  EXPECT_EQ("STATUS=busy", next(10s));
  manager.stopping(1s);
  EXPECT_EQ("STOPPING=1\nSTATUS=stopping", next(10s));
}

TEST_F(ServiceManagerTest, ReportsOnlyWhileAllIsWell) {
  std::atomic<int> mode{0};
  std::atomic<int> asked{0};
  Service_Manager manager;
  manager.begin_watchdog([&] {
    ++asked;
    if (mode == 2) throw std::runtime_error("why");
    return mode == 0;
  });
  EXPECT_EQ("WATCHDOG=1", next(10s));
  EXPECT_EQ("WATCHDOG=1", next(10s));
  for (const int bad : {1, 2}) {
    mode = bad;
    for (const int before = asked; asked < before + 3;) std::this_thread::sleep_for(1ms);
    drain();
    EXPECT_EQ("", next(100ms));
  }
  mode = 0;
  EXPECT_EQ("WATCHDOG=1", next(10s));
  EXPECT_TRUE(log_.contains(LM_ERROR, "Whether the loops answer cannot be told: why\n"));
}

TEST_F(ServiceManagerTest, IsContentDuringTheStopButNotForEver) {
  std::atomic<bool> alive{true};
  Service_Manager manager;
  manager.begin_watchdog([&] { return alive.load(); });
  manager.stopping(800ms);
  alive = false;
  while (next(10s) != "STOPPING=1\nSTATUS=stopping") {
  }
  EXPECT_EQ("WATCHDOG=1", next(10s));
  EXPECT_EQ("WATCHDOG=1", next(10s));
  std::this_thread::sleep_for(900ms);
  drain();
  EXPECT_EQ("", next(100ms));
}

TEST_F(ServiceManagerTest, DoesNothingWhereNobodyAsks) {
  ::unsetenv("WATCHDOG_USEC");
  Service_Manager manager;
  bool asked = false;
  manager.begin_watchdog([&] { return asked = true; });
  EXPECT_EQ("", next(50ms));
  ::unsetenv("NOTIFY_SOCKET");
  ::setenv("WATCHDOG_USEC", "10000", 1);
  manager.ready("serving");
  EXPECT_EQ("", next(50ms));
  manager.end_watchdog();
  EXPECT_FALSE(asked);
  EXPECT_EQ(0u, log_.size());
}

}  // namespace
