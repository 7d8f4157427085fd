#include "json_rpc/json_rpc_object.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>

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

}  // namespace
