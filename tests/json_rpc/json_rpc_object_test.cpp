#include "json_rpc/json_rpc_object.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "vexa/uuid_string.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

TEST(JsonRpcObjectTest, MessagesBeginAsTheirKind) {
  JSON_RPC_Request request;
  EXPECT_EQ(2, request.type);
  EXPECT_EQ("2.0", request.version);
  EXPECT_TRUE(request.id.is_null() && request.method.empty() && request.params.is_null());
  const JSON_RPC_Response_Error error;
  EXPECT_EQ(4, error.type);
  EXPECT_EQ(-32603, error.code);
  EXPECT_EQ("2.0", error.version);
  EXPECT_TRUE(error.id.is_null() && error.message.empty() && error.data.is_null());

  request.id = "abc";
  request.version = "2.1";
  request.method = "m";
  request.params = Array{1};
  const JSON_RPC_Response answer(&request);
  EXPECT_EQ(3, answer.type);
  EXPECT_EQ(Value("abc"), answer.id);
  EXPECT_EQ("2.1", answer.version);
  EXPECT_TRUE(answer.result.is_null());
  const JSON_RPC_Response unasked(nullptr);
  EXPECT_EQ("2.0", unasked.version);
  EXPECT_TRUE(unasked.id.is_null());
}

TEST(JsonRpcObjectTest, IdsPrintAsTheyAlwaysDid) {
  const struct {
    Value id;
    const char* text;
  } cases[] = {
      {Value(), "<null type>"},
      {true, "<invalid type>"},
      {Array{1}, "<invalid type>"},
      {Object(), "<invalid type>"},
      {"a \"b\"", "a \"b\""},
      {42, "42"},
      {-1, "-1"},
      {4294967303LL, "7"},  // cut to its low 32 bits
      {std::numeric_limits<std::int64_t>::min(), "0"},
      {std::uint64_t(4294967303), "4294967303"},
      {std::numeric_limits<std::uint64_t>::max(), "-1"},
      {2.5, "2.500000"},
      {-1e30, "-100000000000000001988462483865"},  // the last digits are cut off
  };
  for (const auto& c : cases) EXPECT_STREQ(c.text, JSON_RPC_Id(c.id).c_str());
}

TEST(JsonRpcObjectTest, ARequestIsDescribedInOneLine) {
  JSON_RPC_Request request;
  request.method = "ping";
  EXPECT_STREQ("JSON-RPC request (version='2.0', method='ping', id='<null type>')",
               JSON_RPC_Request_Dump(request).c_str());
  request.id = 7;
  request.version.clear();
  EXPECT_STREQ("JSON-RPC request (version='', method='ping', id='7')",
               JSON_RPC_Request_Dump(request).c_str());
}

TEST(JsonRpcObjectTest, FreshIdsAreUuidTextsAndNeverTheSame) {
  std::set<std::string> ids;
  for (int i = 0; i < 1000; ++i) ids.insert(JSON_RPC_Id_Generator::get());
  EXPECT_EQ(1000u, ids.size());
  JSON_RPC_Request request;
  request.id = 5;
  JSON_RPC_Id_Generator::gen(request);
  ids.insert(request.id.get_str());
  ids.insert(uuid_string(false));
  EXPECT_EQ(1002u, ids.size());
  for (const std::string& id : ids) {
    ASSERT_EQ(36u, id.size());
    EXPECT_EQ(std::string::npos, id.find_first_not_of("0123456789abcdef-"));
    EXPECT_EQ('4', id[14]);
  }
  EXPECT_EQ(std::string::npos, uuid_string(true).find_first_not_of("0123456789ABCDEF-"));
}

TEST(JsonRpcObjectTest, StandardErrorsHaveTextsAndNoOthers) {
  EXPECT_STREQ("Parse error", json_rpc_error_message(-32700));
  EXPECT_STREQ("Invalid Request", json_rpc_error_message(-32600));
  EXPECT_STREQ("Method not found", json_rpc_error_message(-32601));
  EXPECT_STREQ("Invalid params", json_rpc_error_message(-32602));
  EXPECT_STREQ("Internal error", json_rpc_error_message(-32603));
  // 0 is the value of the row that ends the table.
  for (const int code : {0, -32000, -32604, 32700}) EXPECT_EQ(nullptr, json_rpc_error_message(code));
}

}  // namespace
