#include "json_rpc/json_rpc_parser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Sink final : YAJL_Handler {
  bool handle_number_i(const char* text, std::size_t length) override {
    return seen.append(text, length), true;
  }
  bool handle_map_key_i(const char* text, std::size_t length) override {
    return seen.append(text, length), true;
  }
  bool handle_start_map_i() override { return seen += '{', true; }
  bool handle_end_map_i() override { return seen += '}', true; }

  std::string seen;
};

/// Hands params, which are an object, to a nested handler.
struct Outer final : JSON_RPC_Parser {
  explicit Outer(YAJL_Handler& nested) : nested(nested) {}
  bool handle_key_i(unsigned int key, const char*, std::size_t) override {
    if (key != PARAMS_BIT) return true;
    handler_ = callback_type() == CB_START_MAP ? &nested : nullptr;
    return handler_ == nullptr || nested.handle_start_map_i();
  }

  YAJL_Handler& nested;
};

/// Has a handler nested in it.
struct Passing final : YAJL_Handler {
  explicit Passing(YAJL_Handler& to) { handler_ = &to; }
  bool handle_map_key_i(const char* text, std::size_t length) override {
    return handler_->handle_map_key_i(text, length);
  }
  bool handle_start_map_i() override { return handler_->handle_start_map_i(); }
  bool handle_end_map_i() override { return handler_->handle_end_map_i(); }
};

TEST(JsonRpcParserTest, EventsGoThroughAllNestedHandlers) {
  Sink sink;
  Passing passing(sink);
  Outer outer(passing);
  const std::string text = R"({"id":1,"params":{"a":2,"b":{"c":3}},"method":"m"})";
  ASSERT_TRUE(outer.open());
  EXPECT_TRUE(outer.read(text.data(), text.size()) && outer.read(nullptr, 0));
  EXPECT_EQ("{a2b{c3}}", sink.seen);
  // Also those that do not come from a parse handle.
  EXPECT_TRUE(outer.open() && outer.handle_start_map_i() && outer.handle_map_key_i("params", 6));
  outer.callback_type(YAJL_Handler::CB_START_MAP);
  EXPECT_TRUE(outer.handle_start_map_i() && outer.handle_map_key_i("d", 1));
  EXPECT_EQ("{a2b{c3}}{d", sink.seen);
}

}  // namespace
