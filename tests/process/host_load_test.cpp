// Nothing of a closed connection stays, and an open one is cheap.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/process/host_fixture.h"
#include "tests/process/http_client.h"

namespace {

class HostLoadTest : public Host_Fixture {};

TEST_F(HostLoadTest, ClosedConnectionsLeaveNothingBehind) {
  constexpr int cycles = sanitized ? 300 : 2000;
  start();
  const std::size_t idle = host_->descriptors();
  const auto churn = [&](int count) {
    for (int i = 0; i < count; ++i) {
      Host_Client client(url());
      const std::string id = std::to_string(i);
      ASSERT_EQ(result(id, "true"), client.call(subscription(id)));
      ASSERT_EQ(result(id, "3"), client.call(request("sum", "[1,2]", id)));
      if (i % 3 == 0) client.send(request("sum", "[1", id));
      if (i % 3 == 1) client.reset();
    }
  };
  churn(cycles / 4);
  host_->wait_for_descriptors(idle);
  const std::size_t threads = host_->threads();
  const std::size_t resident = host_->resident_bytes();
  churn(cycles);
  host_->wait_for_descriptors(idle);
  EXPECT_EQ(idle, host_->descriptors());
  EXPECT_EQ(threads, host_->threads());
  if (!sanitized) {
    EXPECT_LT(host_->resident_bytes(), resident + (1u << 20));
  }
}

TEST_F(HostLoadTest, AnIdleConnectionIsCheap) {
  constexpr std::size_t count = sanitized ? 100 : 400;
  start({"--listen", "tcp://127.0.0.1:0", "--listen", "http://127.0.0.1:0"});
  const struct {
    std::size_t door;
    std::string message;
    std::size_t most;  // bytes
  } cases[] = {{0, echo, 8192}, {1, http_post(echo), 12288}};
  for (const auto& c : cases) {
    std::vector<std::unique_ptr<Host_Client>> clients;
    const auto connect = [&](std::size_t more) {
      for (std::size_t i = 0; i < more; ++i) {
        clients.push_back(std::make_unique<Host_Client>(host_->urls().at(c.door)));
        clients.back()->send(c.message);
        clients.back()->until(echoed);
      }
    };
    connect(100);
    const std::size_t before = host_->resident_bytes();
    connect(count);
    if (!sanitized) {
      EXPECT_LT(host_->resident_bytes(), before + count * c.most) << host_->urls()[c.door];
    }
  }
}

}  // namespace
