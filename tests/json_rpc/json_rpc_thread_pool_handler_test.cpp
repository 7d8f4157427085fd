#include "json_rpc/json_rpc_thread_pool_handler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json_rpc/json_rpc_thread_pool_handler_impl.h"
#include "tests/support/fake_channel.h"
#include "tests/support/gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"
#include "vexa/adopt.h"

namespace {

template <typename Message>
JSON_RPC_Object_var handle(Message* message) {
  JSON_RPC_Object_var object;
  vexa::adopt<JSON_RPC_Object_var, JSON_RPC_Object>(object, message);
  return object;
}

class Blocking_Handler : public JSON_RPC_Thread_Pool_Handler {
public:
  int handle_object_i(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    started.arrive();
    go_on.wait();
    return -1;
  }
  Gate started, go_on;
};

struct ThreadPoolHandlerTest : ::testing::Test {
  ~ThreadPoolHandlerTest() override { JSON_RPC_Thread_Pool_Handler::deactivate(); }
  int activate(size_t threads, size_t high, size_t low) {
    return JSON_RPC_Thread_Pool_Handler::activate("test", threads, high, low);
  }

  Log_Capture log;
  JSON_RPC_Channel_var channel = make_fake_channel();
  JSON_RPC_Object_var request = handle(new JSON_RPC_Request);
};

TEST_F(ThreadPoolHandlerTest, ActivationChecksItsArguments) {
  const struct {
    size_t threads, high, low;
    const char* text;
  } cases[] = {
      {0, 0, 0, "threads(0) <= 0"},
      {1, 0, 0, "low_water_mark(0) <= 0"},
      {4, 100, 200, "high_water_mark(100) < low_water_mark(200)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    log.clear();
    EXPECT_EQ(-1, activate(c.threads, c.high, c.low));
    EXPECT_TRUE(log.begins(LM_EMERGENCY, "Unexpected error in "));
    EXPECT_EQ(1u, log.count(std::string(", ") + c.text + ":\n"));
  }
  EXPECT_EQ(0, activate(4, 512, 512));
}

TEST_F(ThreadPoolHandlerTest, WithoutAPoolEveryCallFails) {
  Blocking_Handler handler;
  const auto expect_no_pool = [&] {
    EXPECT_EQ(-1, handler.handle_object(JSON_RPC_Channel_ptr(channel), request));
    EXPECT_EQ(ESHUTDOWN, errno);
    EXPECT_EQ(1u, log.texts(LM_EMERGENCY).size());
    EXPECT_EQ(1u, log.count(", thread_pool_.get() is NULL:\n"));
    log.clear();
  };
  expect_no_pool();
  ASSERT_EQ(0, activate(1, 1, 1));
  EXPECT_EQ(0, JSON_RPC_Thread_Pool_Handler::deactivate());
  expect_no_pool();
  {
    Failing_Thread_Creation fails(1);
    EXPECT_EQ(-1, activate(3, 8, 8));
    EXPECT_EQ(EAGAIN, errno);
  }
  expect_no_pool();
}

TEST_F(ThreadPoolHandlerTest, AFullPoolRefusesAndSaysSo) {
  Blocking_Handler handler;
  const JSON_RPC_Channel_ptr weak(channel);
  ASSERT_EQ(0, activate(1, 3, 1));
  EXPECT_EQ(0u, JSON_RPC_Thread_Pool_Handler::busy());
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
  handler.go_on.arrive();
  JSON_RPC_Thread_Pool_Handler::deactivate();
  EXPECT_EQ(0u, JSON_RPC_Thread_Pool_Handler::busy());
  EXPECT_EQ(0, request.count());
}

/// Notes which operation was called with which channel.
class Typed_Handler : public JSON_RPC_Thread_Pool_Handler_Impl {
public:
  int handle_request(JSON_RPC_Channel* c, JSON_RPC_Request&) override { return note(c, 11); }
  int handle_notify(JSON_RPC_Channel* c, JSON_RPC_Request&) override { return note(c, 12); }
  int handle_response(JSON_RPC_Channel* c, JSON_RPC_Response&) override { return note(c, 13); }
  int handle_response_error(JSON_RPC_Channel* c, JSON_RPC_Response_Error&) override {
    return note(c, 14);
  }
  JSON_RPC_Channel* channel = nullptr;
  int calls = 0;

private:
  int note(JSON_RPC_Channel* c, int result) {
    channel = c;
    ++calls;
    return result;
  }
};

TEST_F(ThreadPoolHandlerTest, TheTypeOfAMessageSelectsTheOperation) {
  const struct {
    JSON_RPC_Object* object;
    int type;
    int result;
    const char* error;
  } cases[] = {
      {new JSON_RPC_Request, 2, 11, nullptr},
      {new JSON_RPC_Request, 1, 12, nullptr},
      {new JSON_RPC_Response(nullptr), 3, 13, nullptr},
      {new JSON_RPC_Response_Error, 4, 14, nullptr},
      {new JSON_RPC_Request, 3, -1, ", p is NULL:\n"},
      {new JSON_RPC_Response(nullptr), 2, -1, ", p is NULL:\n"},
      {new JSON_RPC_Request, 0, -1,
       "An unknown type(0) of JSON-RPC object(id: \"x\") is receivced.\n"},
      {new JSON_RPC_Request, 5, -1,
       "An unknown type(5) of JSON-RPC object(id: \"x\") is receivced.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    log.clear();
    c.object->type = static_cast<JSON_RPC_Object::Type>(c.type);
    c.object->id = "x";
    const JSON_RPC_Object_var object = handle(c.object);
    Typed_Handler handler;
    EXPECT_EQ(c.result, handler.handle_object_i(JSON_RPC_Channel_ptr(channel), object));
    EXPECT_EQ(c.error == nullptr ? 1 : 0, handler.calls);
    EXPECT_EQ(c.error == nullptr ? channel.get() : nullptr, handler.channel);
    EXPECT_EQ(c.error == nullptr ? 0u : 1u, log.size());
    if (c.error != nullptr) {
      EXPECT_EQ(1u, log.count(c.error));
    }
  }
  Typed_Handler handler;
  handler.channel = channel.get();
  const JSON_RPC_Channel_ptr gone(make_fake_channel());
  EXPECT_EQ(11, handler.handle_object_i(gone, request));
  EXPECT_EQ(nullptr, handler.channel) << "of a channel that is gone";
}

}  // namespace
