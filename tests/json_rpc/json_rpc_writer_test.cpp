#include "json_rpc/json_rpc_writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "json_rpc/json_rpc_generator.h"
#include "tests/support/nested_arrays.h"
#include "vexa/yajl_gen.h"

using json_spirit::Array;
using json_spirit::Value;

namespace {

/// "true " or "false " and the text.
template <typename Message>
std::string written(Message&& message) {
  std::string text;
  YAJL_String_Printer printer(text);
  const bool result = JSON_RPC_Writer().write(message, printer);
  return (result ? "true " : "false ") + text;
}

/// Whatever their sizes, pieces that are gathered and pieces that go past must not change places.
TEST(JsonRpcWriterTest, TextsOfAllSizesKeepTheirOrder) {
  JSON_RPC_Response response(nullptr);
  for (std::size_t size = 0; size < 5000; size = size * 3 / 2 + 7) {
    Array texts;
    std::string expected = R"(true {"jsonrpc":"2.0","id":null,"result":[)";
    for (char c = 'a'; c <= 'z'; ++c) {
      const std::string text(c % 3 == 0 ? size : 1900 + c - 'a', c);
      texts.emplace_back(text);
      expected += '"' + text + (c == 'z' ? "\"]}" : "\",");
    }
    response.result = std::move(texts);
    EXPECT_EQ(expected, written(response)) << size;
  }
}

TEST(JsonRpcWriterTest, WhatCannotBeWrittenMakesAnyMessageFail) {
  JSON_RPC_Request request;
  JSON_RPC_Response response(nullptr);
  JSON_RPC_Response_Error error;
  const std::pair<JSON_RPC_Object*, Value*> cases[] = {{&request, &request.id},
                                                       {&request, &request.params},
                                                       {&response, &response.result},
                                                       {&error, &error.data}};
  for (const auto& c : cases) {
    for (const Value& bad : {Value(std::nan("")), Value(Array{1, HUGE_VAL, 2}), nested_arrays(125),
                             nested_arrays(10000)}) {
      *c.second = bad;
      EXPECT_EQ(0u, written(*c.first).find("false "));
    }
    *c.second = nested_arrays(124);
    EXPECT_EQ(0u, written(*c.first).find("true "));
  }
}

/// The generator goes with the text that it was made for, also when that breaks off.
TEST(JsonRpcWriterTest, APrinterMayThrow) {
  struct Full final : YAJL_Printer {
    void print(const char*, std::size_t) override { throw std::length_error("full"); }
  } full;
  JSON_RPC_Response response(nullptr);
  response.result = Array{std::string(5000, 'x')};
  JSON_RPC_Writer writer;
  EXPECT_THROW(writer.write(response, full), std::length_error);
  std::string text;
  YAJL_String_Printer printer(text);
  EXPECT_TRUE(writer.write(response, printer));
}

/// Writes one value, and says whatever it is told to.
template <typename Base>
class Writes : public Base {
public:
  explicit Writes(Value value, bool result = true) : value_(std::move(value)), result_(result) {}
  bool generate_i(YAJL_Gen& gen) override {
    gen << value_;
    return result_;
  }

private:
  const Value value_;
  const bool result_;
};

TEST(JsonRpcGeneratorTest, RequestsAreWrittenWithTheirOwnIdAndParams) {
  typedef Writes<JSON_Generator> Params;
  Params good(Array{1, "two"}), failing(1, false), deep(nested_arrays(1000)), infinite(HUGE_VAL);
  const struct {
    JSON_Generator* params;
    std::string result, text;
  } cases[] = {
      {nullptr, "true", ":null}"},
      {&good, "true", R"(:[1,"two"]})"},
      {&failing, "false", ":1}"},
      // A generator of yajl that failed is not driven on, not even to close the message.
      {&deep, "false", ':' + std::string(124, '[')},
      {&infinite, "false", ""},
  };
  std::string last_id;
  for (const auto& c : cases) {
    JSON_RPC_Request_Generator request("m", c.params);
    EXPECT_EQ(c.result + R"( {"jsonrpc":"2.0","method":"m","id":")" + request.id() +
                  R"(","params")" + c.text,
              written(request));
    EXPECT_NE(last_id, request.id());
    last_id = request.id();
  }
  EXPECT_EQ(0u, written(Writes<JSON_RPC_Object_Generator>(nested_arrays(1000))).find("false "));
}

}  // namespace
