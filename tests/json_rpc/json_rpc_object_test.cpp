#include "json_rpc/json_rpc_object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <set>
#include <thread>
#include <vector>

using json_spirit::Value;

namespace {

TEST(JsonRpcObjectTest, IdsPrintAsTheyAlwaysDid) {
  const std::pair<Value, std::string> cases[] = {
      {Value(), "<null type>"},
      {true, "<invalid type>"},
      {4294967303LL, "7"},  // cut to its low 32 bits
      {std::uint64_t(4294967303), "4294967303"},
      {std::numeric_limits<std::uint64_t>::max(), "-1"},
      {2.5, "2.500000"},
      {-1e30, "-100000000000000001988462483865"},  // the last digits are cut off
  };
  for (const auto& c : cases) {
    JSON_RPC_Request request;
    request.method = "ping";
    request.id = c.first;
    EXPECT_EQ(c.second, JSON_RPC_Id(c.first).c_str());
    EXPECT_EQ("JSON-RPC request (version='2.0', method='ping', id='" + c.second + "')",
              JSON_RPC_Request_Dump(request).c_str());
  }
}

TEST(JsonRpcObjectTest, FreshIdsAreUuidTextsAndNeverTheSame) {
  std::set<std::string> ids;
  JSON_RPC_Request request;
  request.id = 5;
  JSON_RPC_Id_Generator::gen(request);
  ids.insert(request.id.get_str());
  while (ids.insert(JSON_RPC_Id_Generator::get()).second && ids.size() < 1000) {
  }
  EXPECT_EQ(1000u, ids.size());
  for (const std::string& id : ids) {
    EXPECT_TRUE(id.size() == 36 && id[14] == '4' &&
                id.find_first_not_of("0123456789abcdef-") == id.npos)
        << id;
  }
}

TEST(JsonRpcObjectTest, TheLastOfAllHandlesDestroysTheMessageOnce) {
  struct Counted final : JSON_RPC_Object {
    explicit Counted(std::atomic<int>& n) : JSON_RPC_Object(TYPE_NONE), destroyed(n) {}
    ~Counted() override { ++destroyed; }
    std::atomic<int>& destroyed;
  };
  constexpr int rounds = 200, threads = 4;
  std::atomic<int> destroyed{0};
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::thread> users;
    auto first = std::make_unique<JSON_RPC_Object_var>(new Counted(destroyed));
    for (int i = 0; i < threads; ++i) {
      users.emplace_back([handle = JSON_RPC_Object_var(*first)]() mutable {
        for (int n = 0; n < 50; ++n) {
          const JSON_RPC_Object_var copy(handle);
          handle = JSON_RPC_Object_var(copy);
        }
        EXPECT_EQ(JSON_RPC_Object::TYPE_NONE, handle->type);
      });
    }
    EXPECT_EQ(round, destroyed);
    first.reset();
    for (std::thread& user : users) user.join();
    users.clear();
    ASSERT_EQ(round + 1, destroyed);
  }
}

}  // namespace
