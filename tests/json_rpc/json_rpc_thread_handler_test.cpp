#include "json_rpc/json_rpc_thread_handler.h"

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>

#include "tests/support/json_rpc_fixture.h"
#include "tests/support/thread_faults.h"

namespace {

/// Notes what a call finds once `go_on` opens, and throws.
struct Handler : JSON_RPC_Thread_Handler {
  int handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var obj) override {
    ::pthread_getname_np(::pthread_self(), &name[0], name.size());
    go_on.wait();
    alive = !channel_gone && !channel.null() && obj.get() == request.get();
    throw std::runtime_error("oops");
  }

  const JSON_RPC_Object_var request = make_request("m", 1);
  Gate go_on;
  bool channel_gone = false;
  bool alive = false;
  std::string name = std::string(64, '\0');
};

TEST(ThreadHandlerTest, ACallOutlivesItsCallerAndKeepsTheChannel) {
  Log_Capture log;
  Handler handler;
  JSON_RPC_Channel_var channel = make_fake_channel();
  fake(channel).destroyed = &handler.channel_gone;
  EXPECT_EQ(0, handler.handle_object(JSON_RPC_Channel_ptr(channel), handler.request));
  channel.reset();
  EXPECT_EQ(1u, JSON_RPC_Thread_Handler::running());
  EXPECT_FALSE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(0, 1000)));
  handler.go_on.arrive();
  EXPECT_TRUE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10)));
  EXPECT_EQ(0u, JSON_RPC_Thread_Handler::running());
  EXPECT_TRUE(handler.alive);
  EXPECT_TRUE(handler.channel_gone);
  EXPECT_STREQ("JSONRPCSolo", handler.name.c_str());
  EXPECT_TRUE(log.contains(LM_ERROR, "A handler threw an exception on its own thread: oops\n"));
  EXPECT_EQ(1u, log.size());
  ACE_Thread_Manager::instance()->wait();  // until ACE, too, has done with the thread
}

TEST(ThreadHandlerTest, ACallThatCannotBeStartedLeavesNothing) {
  Log_Capture log;
  Handler handler;
  JSON_RPC_Channel_var channel = make_fake_channel();
  fake(channel).destroyed = &handler.channel_gone;
  const JSON_RPC_Channel_ptr weak(channel);
  const Failing_Thread_Creation fails(0);
  EXPECT_EQ(-1, handler.handle_object(weak, handler.request));
  EXPECT_EQ(EAGAIN, errno);
  channel.reset();
  EXPECT_TRUE(handler.channel_gone);
  EXPECT_EQ(-1, handler.handle_object(weak, handler.request));
  EXPECT_EQ(EPIPE, errno);
  EXPECT_EQ(0u, JSON_RPC_Thread_Handler::running());
  EXPECT_TRUE(log.contains(LM_ERROR,
                           "Abort handling JRON-RPC request, failed to spawn thread, "
                           "errno=11, Resource temporarily unavailable.\n"));
  EXPECT_TRUE(log.contains(LM_ERROR, "Abort handling JRON-RPC request, requester has gone.\n"));
}

}  // namespace
