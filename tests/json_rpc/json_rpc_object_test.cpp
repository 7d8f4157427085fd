#include "json_rpc/json_rpc_object.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

TEST(JsonRpcObjectTest, AnAnswerTakesOverVersionAndIdAndNothingElse) {
  JSON_RPC_Request request;
  request.id = "abc";
  request.version = "2.1";
  request.params = Array{1};
  const JSON_RPC_Response answer(&request), unasked(nullptr);
  EXPECT_EQ(3, answer.type);
  EXPECT_EQ(Value("abc"), answer.id);
  EXPECT_EQ("2.1", answer.version);
  EXPECT_EQ("2.0", unasked.version);
  EXPECT_TRUE(answer.result.is_null() && unasked.id.is_null());
  EXPECT_EQ(-32603, JSON_RPC_Response_Error().code);
}

TEST(JsonRpcObjectTest, IdsPrintAsTheyAlwaysDid) {
  const std::pair<Value, std::string> cases[] = {
      {Value(), "<null type>"},
      {true, "<invalid type>"},
      {Array{1}, "<invalid type>"},
      {Object(), "<invalid type>"},
      {"a \"b\"", "a \"b\""},
      {42, "42"},
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

TEST(JsonRpcObjectTest, StandardErrorsHaveTextsAndNoOthers) {
  EXPECT_STREQ("Parse error", json_rpc_error_message(-32700));
  EXPECT_STREQ("Invalid Request", json_rpc_error_message(-32600));
  EXPECT_STREQ("Method not found", json_rpc_error_message(-32601));
  EXPECT_STREQ("Invalid params", json_rpc_error_message(-32602));
  EXPECT_STREQ("Internal error", json_rpc_error_message(-32603));
  // 0 is the value of the row that ends the table.
  for (const int code : {0, -32000, -32604}) EXPECT_EQ(nullptr, json_rpc_error_message(code));
}

}  // namespace
