#include "json_rpc/json_rpc_writer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "json_rpc/json_rpc_generator.h"
#include "tests/support/log_capture.h"
#include "vexa/json_limits.h"
#include "vexa/yajl_gen.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

/// "true " or "false " and the text.
template <typename Message>
std::string written(Message&& message) {
  std::string text;
  YAJL_String_Printer printer(text);
  JSON_RPC_Writer writer;
  const bool result = writer.write(message, printer);
  return (result ? "true " : "false ") + text;
}

Value nested(std::size_t depth) {
  Value value{Array()};
  while (--depth > 0) {
    Array outer;
    outer.push_back(std::move(value));
    value = Value(std::move(outer));
  }
  return value;
}

TEST(JsonRpcWriterTest, MessagesAreWrittenInTheirOrder) {
  JSON_RPC_Request request;
  request.method = "m";
  EXPECT_EQ(R"(true {"jsonrpc":"2.0","id":null,"method":"m"})", written(request));
  request.id = 5;
  request.params = Array{1, 2};
  EXPECT_EQ(R"(true {"jsonrpc":"2.0","id":5,"method":"m","params":[1,2]})", written(request));
  request.type = JSON_RPC_Object::TYPE_NOTIFY;
  request.version.clear();
  EXPECT_EQ(R"(true {"jsonrpc":"","method":"m","params":[1,2]})", written(request));
  request.params = Value();
  EXPECT_EQ(R"(true {"jsonrpc":"","method":"m"})", written(request));

  JSON_RPC_Response response(nullptr);
  EXPECT_EQ(R"(true {"jsonrpc":"2.0","id":null,"result":null})", written(response));
  response.id = "x";
  response.result = Object();
  EXPECT_EQ(R"(true {"jsonrpc":"2.0","id":"x","result":{}})", written(response));

  JSON_RPC_Response_Error error;
  error.id = "x";
  EXPECT_EQ(R"(true {"jsonrpc":"2.0","id":"x","error":{"code":-32603,"message":""}})",
            written(error));
  error.code = -32700;
  error.message = "bad \xFF";
  error.data = false;
  EXPECT_EQ("true {\"jsonrpc\":\"2.0\",\"id\":\"x\",\"error\":{\"code\":-32700,"
            "\"message\":\"bad \uFFFD\",\"data\":false}}",
            written(error));
}

TEST(JsonRpcWriterTest, AnObjectOfNoKindIsBegunAndRefused) {
  JSON_RPC_Object none(JSON_RPC_Object::TYPE_NONE);
  EXPECT_EQ(R"(false {"jsonrpc":"2.0","id":null})", written(none));
  none.type = static_cast<JSON_RPC_Object::Type>(5);
  none.id = 1;
  EXPECT_EQ(R"(false {"jsonrpc":"2.0","id":1})", written(none));
}

TEST(JsonRpcWriterTest, WhatCannotBeWrittenMakesAnyMessageFail) {
  JSON_RPC_Request request;
  JSON_RPC_Response response(nullptr);
  JSON_RPC_Response_Error error;
  const struct {
    JSON_RPC_Object* message;
    Value* field;
  } cases[] = {{&request, &request.id},
               {&request, &request.params},
               {&response, &response.result},
               {&error, &error.data}};
  for (const auto& c : cases) {
    for (const Value& bad : {Value(std::nan("")), Value(Array{1, HUGE_VAL, 2}),
                             nested(vexa::max_value_depth + 1), nested(100000)}) {
      *c.field = bad;
      EXPECT_EQ(0u, written(*c.message).find("false "));
    }
    *c.field = nested(vexa::max_value_depth);
    EXPECT_EQ(0u, written(*c.message).find("true "));
  }
}

TEST(JsonRpcWriterTest, MemberFunctionsAlwaysReportSuccess) {
  JSON_RPC_Request request;
  JSON_RPC_Response response(nullptr);
  JSON_RPC_Response_Error error;
  request.params = nested(1000);
  response.result = HUGE_VAL;
  error.data = nested(1000);
  std::string text;
  YAJL_String_Printer printer(text);
  for (int i = 0; i < 3; ++i) {
    JSON_RPC_Writer writer;
    yajl_gen_t* const gen = writer.open(printer);
    yajl_gen_map_open(gen);
    EXPECT_EQ(0, i == 0   ? yajl_gen_json_rpc_request(gen, request)
                 : i == 1 ? yajl_gen_json_rpc_response(gen, response)
                          : yajl_gen_json_rpc_response_error(gen, error));
  }
  JSON_RPC_Writer writer;
  text.clear();
  yajl_gen_map_open(writer.open(printer));
  yajl_gen_t* const gen = writer.open(printer);  // ends the one before
  yajl_gen_map_open(gen);
  error.data = 1;
  yajl_gen_json_rpc_response_error(gen, error);
  writer.close();
  writer.close();
  EXPECT_EQ(R"({{"error":{"code":-32603,"message":"","data":1})", text);
}

/// Writes one value, and says whatever it is told to.
class Params : public JSON_Generator {
public:
  explicit Params(Value value, bool result = true) : value_(std::move(value)), result_(result) {}
  bool generate_i(YAJL_Gen& gen) override {
    gen << value_;
    return result_;
  }

private:
  const Value value_;
  const bool result_;
};

TEST(JsonRpcGeneratorTest, RequestsAreWrittenWithTheirOwnIdAndParams) {
  JSON_RPC_Request_Generator without("m", nullptr);
  JSON_RPC_Request_Generator again("m", nullptr);
  EXPECT_EQ(36u, without.id().size());
  EXPECT_NE(without.id(), again.id());
  const std::string begin = R"( {"jsonrpc":"2.0","method":"m","id":")";
  EXPECT_EQ("true" + begin + without.id() + R"(","params":null})", written(without));

  Params good(Array{1, "two"}), failing(1, false), deep(nested(1000)), infinite(HUGE_VAL);
  JSON_RPC_Request_Generator with("m", &good), failed("m", &failing);
  EXPECT_EQ("true" + begin + with.id() + R"(","params":[1,"two"]})", written(with));
  EXPECT_EQ("false" + begin + failed.id() + R"(","params":1})", written(failed));
  // A generator of yajl that failed is not driven on, not even to close the message.
  JSON_RPC_Request_Generator too_deep("m", &deep), not_finite("m", &infinite);
  EXPECT_EQ("false" + begin + too_deep.id() + R"(","params":)" +
                std::string(vexa::max_value_depth, '['),
            written(too_deep));
  EXPECT_EQ("false" + begin + not_finite.id() + R"(","params")", written(not_finite));
}

TEST(JsonRpcGeneratorTest, BrokenContractsAreLoggedAndFail) {
  Log_Capture log;
  JSON_RPC_Request_Generator unnamed(nullptr, nullptr), empty("", nullptr), good("m", nullptr);
  EXPECT_EQ(R"(false {"jsonrpc":"2.0"})", written(unnamed));
  EXPECT_EQ(R"(false {"jsonrpc":"2.0"})", written(empty));
  EXPECT_FALSE(good.generate(nullptr));
  const std::vector<std::string> lines = log.texts(LM_EMERGENCY);
  ASSERT_EQ(3u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find(", method_ is empty:\n"));
  EXPECT_NE(std::string::npos, lines[2].find(", gen is NULL:\n"));
  EXPECT_EQ(0u, lines[2].find("Unexpected error in "));
}

}  // namespace
