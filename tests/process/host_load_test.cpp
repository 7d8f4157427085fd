// Nothing of a closed connection stays.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/process/host_client.h"
#include "tests/process/host_process.h"

namespace {

TEST(HostLoadTest, ClosedConnectionsLeaveNothingBehind) {
  constexpr int cycles = sanitized ? 300 : 2000;
  Host_Process host;
  ASSERT_TRUE(host.ready());
  const std::size_t idle = host.descriptors();
  const auto churn = [&](int count) {
    for (int i = 0; i < count; ++i) {
      Host_Client client(host.url());
      const std::string id = std::to_string(i);
      ASSERT_EQ(result(id, "true"), client.call(request("subscribe", R"({"subjects":["n"]})", id)));
      ASSERT_EQ(result(id, "3"), client.call(request("sum", "[1,2]", id)));
      if (i % 3 == 0) client.send(request("sum", "[1", id));
      if (i % 3 == 1) client.reset();
    }
  };
  churn(cycles / 4);
  host.wait_for_descriptors(idle);
  const std::size_t threads = host.threads();
  const std::size_t resident = host.resident_bytes();
  churn(cycles);
  host.wait_for_descriptors(idle);
  EXPECT_EQ(idle, host.descriptors());
  EXPECT_EQ(threads, host.threads());
  if (!sanitized) {
    EXPECT_LT(host.resident_bytes(), resident + (1u << 20));
  }
  host.stop();
}

TEST(HostLoadTest, AnIdleConnectionIsCheap) {
  constexpr int count = 400;
  Host_Process host;
  ASSERT_TRUE(host.ready());
  std::vector<std::unique_ptr<Host_Client>> clients;
  const auto connect = [&](int more) {
    for (int i = 0; i < more; ++i) {
      clients.push_back(std::make_unique<Host_Client>(host.url()));
      ASSERT_EQ(result("1", "3"), clients.back()->call(request("sum", "[1,2]", "1")));
    }
  };
  connect(100);
  const std::size_t before = host.resident_bytes();
  connect(count);
  if (!sanitized) {
    EXPECT_LT(host.resident_bytes(), before + count * 8192);
  }
  clients.clear();
  host.stop();
}

}  // namespace
