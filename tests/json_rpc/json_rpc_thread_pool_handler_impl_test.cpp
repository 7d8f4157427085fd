#include "json_rpc/json_rpc_thread_pool_handler_impl.h"

#include <gtest/gtest.h>

#include "tests/support/json_rpc_fixture.h"

namespace {

/// Each operation gives a number of its own, and notes its channel.
struct Typed_Handler : JSON_RPC_Thread_Pool_Handler_Impl {
  int handle_request(JSON_RPC_Channel* c, JSON_RPC_Request&) override { return channel = c, 11; }
  int handle_notify(JSON_RPC_Channel* c, JSON_RPC_Request&) override { return channel = c, 12; }
  int handle_response(JSON_RPC_Channel* c, JSON_RPC_Response&) override { return channel = c, 13; }
  int handle_response_error(JSON_RPC_Channel* c, JSON_RPC_Response_Error&) override {
    return channel = c, 14;
  }
  JSON_RPC_Channel* channel = nullptr;
};

TEST(ThreadPoolHandlerImplTest, TheTypeOfAMessageSelectsTheOperation) {
  Log_Capture log;
  const JSON_RPC_Channel_var channel = make_fake_channel();
  const struct {
    JSON_RPC_Object* object;
    int type;
    int result;
  } cases[] = {
      {new JSON_RPC_Request, 2, 11},           {new JSON_RPC_Request, 1, 12},
      {new JSON_RPC_Response(nullptr), 3, 13}, {new JSON_RPC_Response_Error, 4, 14},
      {new JSON_RPC_Request, 3, -1},           {new JSON_RPC_Request, 0, -1},
  };
  Typed_Handler typed;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    typed.channel = nullptr;
    c.object->type = static_cast<JSON_RPC_Object::Type>(c.type);
    const JSON_RPC_Object_var object(c.object);
    EXPECT_EQ(c.result, typed.handle_object_i(JSON_RPC_Channel_ptr(channel), object));
    EXPECT_EQ(c.result > 0 ? channel.get() : nullptr, typed.channel);
  }
  EXPECT_TRUE(
      log.contains(LM_ERROR, "An unknown type(0) of JSON-RPC object(id: null) is receivced.\n"));
  EXPECT_EQ(-1, typed.handle_object_i(JSON_RPC_Channel_ptr(channel), JSON_RPC_Object_var()));
  EXPECT_EQ(1u, log.count(", p is NULL:\n"));
  typed.channel = channel.get();
  const JSON_RPC_Channel_ptr gone(make_fake_channel());
  EXPECT_EQ(11, typed.handle_object_i(gone, make_request("m", 1)));
  EXPECT_EQ(nullptr, typed.channel) << "of a channel that is gone";
}

}  // namespace
