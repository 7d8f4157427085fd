#include "json_rpc/json_rpc_thread_pool_handler.h"

#include <gtest/gtest.h>

#include <thread>

#include "json_rpc/json_rpc_thread_pool_handler_impl.h"
#include "tests/support/json_rpc_fixture.h"
#include "tests/support/thread_faults.h"

namespace {

/// Waits until `go_on` opens, then calls itself again until that is refused for good.
struct Recurring_Handler : JSON_RPC_Thread_Pool_Handler {
  int handle_object_i(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) override {
    ++calls;
    started.arrive();
    go_on.wait();
    do {
      std::this_thread::yield();
    } while (handle_object(channel, obj) == 0 || errno == EWOULDBLOCK);
    error = errno;
    return -1;
  }
  Gate started, go_on;
  int calls = 0, error = 0;
};

struct ThreadPoolHandlerTest : ::testing::Test {
  ~ThreadPoolHandlerTest() override { JSON_RPC_Thread_Pool_Handler::deactivate(); }
  int activate(size_t threads, size_t high, size_t low) {
    return JSON_RPC_Thread_Pool_Handler::activate("test", threads, high, low);
  }

  Log_Capture log;
  JSON_RPC_Channel_var channel = make_fake_channel();
  const JSON_RPC_Object_var request = make_request("m", 1);
  Recurring_Handler handler;
};

TEST_F(ThreadPoolHandlerTest, WithoutAPoolEveryCallFails) {
  const struct {
    size_t threads, high, low;
    const char* text;
  } cases[] = {
      {0, 0, 0, "threads(0) <= 0"},
      {1, 0, 0, "low_water_mark(0) <= 0"},
      {4, 100, 200, "high_water_mark(100) < low_water_mark(200)"},
      {3, 8, 8, nullptr},  // not all its threads can be started
  };
  Failing_Thread_Creation fails(1);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.threads);
    log.clear();
    EXPECT_EQ(-1, activate(c.threads, c.high, c.low));
    EXPECT_EQ(-1, handler.handle_object(JSON_RPC_Channel_ptr(channel), request));
    EXPECT_EQ(ESHUTDOWN, errno);
    EXPECT_EQ(1u, log.count(", thread_pool_.get() is NULL:\n"));
    EXPECT_EQ(c.text != nullptr ? 2u : 1u, log.texts(LM_EMERGENCY).size());
    EXPECT_TRUE(log.begins(LM_EMERGENCY, "Unexpected error in "));
    if (c.text != nullptr) {
      EXPECT_EQ(1u, log.count(std::string(", ") + c.text + ":\n"));
    }
  }
}

TEST_F(ThreadPoolHandlerTest, AFullPoolRefusesAndSaysSo) {
  const JSON_RPC_Channel_ptr weak(channel);
  ASSERT_EQ(0, activate(1, 3, 3));
  ASSERT_EQ(0, handler.handle_object(weak, request));
  handler.started.wait();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(0, handler.handle_object(weak, request));
  errno = 0;
  EXPECT_EQ(-1, handler.handle_object(weak, request));
  EXPECT_EQ(EWOULDBLOCK, errno);
  EXPECT_TRUE(log.contains(
      LM_ERROR, "Failed to schedule task, errno=11, Resource temporarily unavailable\n"));
  EXPECT_EQ(4u, JSON_RPC_Thread_Pool_Handler::busy());

  // A queued call keeps the message alive but not the channel.
  channel.reset();
  EXPECT_TRUE(weak.null());
  EXPECT_GE(request.count(), 4);
  // While the pool stops a call that it runs may still come back to it; none that waits is run.
  handler.go_on.arrive();
  EXPECT_EQ(0, JSON_RPC_Thread_Pool_Handler::deactivate());
  EXPECT_EQ(ESHUTDOWN, handler.error);
  EXPECT_EQ(1, handler.calls);
  EXPECT_EQ(0u, log.texts(LM_EMERGENCY).size());
  EXPECT_EQ(0u, JSON_RPC_Thread_Pool_Handler::busy());
  EXPECT_EQ(0, request.count());
}

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

TEST_F(ThreadPoolHandlerTest, TheTypeOfAMessageSelectsTheOperation) {
  const struct {
    JSON_RPC_Object* object;
    int type;
    int result;
    std::string error;
  } cases[] = {
      {new JSON_RPC_Request, 2, 11, ""},
      {new JSON_RPC_Request, 1, 12, ""},
      {new JSON_RPC_Response(nullptr), 3, 13, ""},
      {new JSON_RPC_Response_Error, 4, 14, ""},
      {new JSON_RPC_Request, 3, -1, ", p is NULL:\n"},
      {new JSON_RPC_Request, 0, -1,
       "An unknown type(0) of JSON-RPC object(id: \"x\") is receivced.\n"},
  };
  Typed_Handler typed;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    log.clear();
    typed.channel = nullptr;
    c.object->type = static_cast<JSON_RPC_Object::Type>(c.type);
    c.object->id = "x";
    const JSON_RPC_Object_var object(c.object);
    EXPECT_EQ(c.result, typed.handle_object_i(JSON_RPC_Channel_ptr(channel), object));
    EXPECT_EQ(c.error.empty() ? channel.get() : nullptr, typed.channel);
    EXPECT_EQ(c.error.empty() ? 0u : 1u, log.size());
    EXPECT_EQ(log.size(), log.count(c.error));
  }
  typed.channel = channel.get();
  const JSON_RPC_Channel_ptr gone(make_fake_channel());
  EXPECT_EQ(11, typed.handle_object_i(gone, request));
  EXPECT_EQ(nullptr, typed.channel) << "of a channel that is gone";
}

}  // namespace
