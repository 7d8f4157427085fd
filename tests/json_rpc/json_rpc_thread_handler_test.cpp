#include "json_rpc/json_rpc_thread_handler.h"

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "tests/support/fake_channel.h"
#include "tests/support/gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"
#include "vexa/adopt.h"

namespace {

class Handler : public JSON_RPC_Thread_Handler {
public:
  int handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var obj) override {
    return call(channel, obj);
  }
  std::function<int(const JSON_RPC_Channel_var&, const JSON_RPC_Object_var&)> call;
};

struct ThreadHandlerTest : ::testing::Test {
  ThreadHandlerTest() {
    vexa::adopt<JSON_RPC_Object_var, JSON_RPC_Object>(request, new JSON_RPC_Request);
  }
  ~ThreadHandlerTest() override {
    EXPECT_TRUE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10)));
    ACE_Thread_Manager::instance()->wait();  // until ACE, too, has done with the threads
  }

  Log_Capture log;
  Handler handler;
  JSON_RPC_Object_var request;
  bool channel_gone = false;
};

TEST_F(ThreadHandlerTest, ACallOutlivesItsCallerAndKeepsTheChannel) {
  Gate started, go_on;
  std::string name(64, '\0');
  bool alive_within = false;
  handler.call = [&](const JSON_RPC_Channel_var& channel, const JSON_RPC_Object_var& obj) {
    ::pthread_getname_np(::pthread_self(), &name[0], name.size());
    started.arrive();
    go_on.wait();
    alive_within = !channel_gone && !channel.null() && obj.get() == request.get();
    return -1;
  };
  {
    JSON_RPC_Channel_var channel = make_fake_channel();
    fake(channel).destroyed = &channel_gone;
    EXPECT_EQ(0, handler.handle_object(JSON_RPC_Channel_ptr(channel), request));
  }
  started.wait();
  EXPECT_EQ(1u, JSON_RPC_Thread_Handler::running());
  EXPECT_FALSE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(0, 1000)));
  go_on.arrive();
  EXPECT_TRUE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10)));
  EXPECT_EQ(0u, JSON_RPC_Thread_Handler::running());
  EXPECT_TRUE(alive_within);
  EXPECT_TRUE(channel_gone);
  EXPECT_STREQ("JSONRPCSolo", name.c_str());
  EXPECT_EQ(0u, log.size());
}

TEST_F(ThreadHandlerTest, ACallThatCannotBeStartedLeavesNothing) {
  const JSON_RPC_Channel_ptr gone(make_fake_channel());
  EXPECT_EQ(-1, handler.handle_object(gone, request));
  EXPECT_EQ(EPIPE, errno);
  {
    const JSON_RPC_Channel_var channel = make_fake_channel();
    fake(channel).destroyed = &channel_gone;
    Failing_Thread_Creation fails(0);
    EXPECT_EQ(-1, handler.handle_object(JSON_RPC_Channel_ptr(channel), request));
    EXPECT_EQ(EAGAIN, errno);
  }
  EXPECT_EQ((std::vector<std::string>{
                "Abort handling JRON-RPC request, requester has gone.\n",
                "Abort handling JRON-RPC request, failed to spawn thread, errno=11, "
                "Resource temporarily unavailable.\n"}),
            log.texts(LM_ERROR));
  EXPECT_EQ(0u, JSON_RPC_Thread_Handler::running());
  EXPECT_TRUE(channel_gone);
}

TEST_F(ThreadHandlerTest, AThrowingCallIsLoggedOnce) {
  JSON_RPC_Channel_var channel = make_fake_channel();
  handler.call = [](const JSON_RPC_Channel_var&, const JSON_RPC_Object_var&) -> int {
    throw std::runtime_error("oops");
  };
  EXPECT_EQ(0, handler.handle_object(JSON_RPC_Channel_ptr(channel), request));
  EXPECT_TRUE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10)));
  EXPECT_EQ((std::vector<std::string>{"A handler threw an exception on its own thread: oops\n"}),
            log.texts(LM_ERROR));
}

}  // namespace
