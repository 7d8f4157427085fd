// Calls out, and handing calls to other threads, when memory fails.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_session.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "json_rpc/json_rpc_utils.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/json_rpc_fixture.h"
#include "vexa/thread_pool_helper.h"

using json_spirit::Value;

namespace {

const std::string long_text = "a text that is too long to be kept in place, by far";

/// Its peer answers at once, on the thread that asks.
class Answering_Channel final : public Fake_Channel {
public:
  int send(JSON_RPC_Object_var obj) override { return answer(obj->id); }
  int send(JSON_Generator& gen) override {
    Value id;
    {
      const Failing_Memory::Pause pause;
      id = dynamic_cast<JSON_RPC_Request_Generator&>(gen).id();
    }
    return answer(id);
  }

private:
  /// As a connection that has read it: nothing but the way from the dispatcher on may fail.
  static JSON_RPC_Object_var make_answer(const Value& id) {
    const Failing_Memory::Pause pause;
    JSON_RPC_Object_var object(new JSON_RPC_Response(nullptr));
    object->id = id;
    static_cast<JSON_RPC_Response&>(*object).result = long_text;
    return object;
  }
  static int answer(const Value& id) {
    JSON_RPC_Dispatcher::instance()->dispatch(JSON_RPC_Channel_var(), make_answer(id));
    return 0;
  }
};

class CallMemoryTest : public ::testing::Test {
protected:
  ~CallMemoryTest() override {
    JSON_RPC_Dispatcher::close_instance();
    JSON_RPC_Response_Map::close_instance();
  }
  JSON_RPC_Response_Map* const waiting_ = JSON_RPC_Response_Map::instance();
  JSON_RPC_Dispatcher* const dispatcher_ = JSON_RPC_Dispatcher::instance();
};

TEST_F(CallMemoryTest, ACallIsAnsweredOrFailsAtOnce) {
  at_every_allocation([this](Failing_Memory& memory) {
    const JSON_RPC_Channel_var channel(new Answering_Channel);
    JSON_RPC_Session session(channel);
    bool answered[] = {false, false};
    int errors[] = {0, 0};
    JSON_RPC_Object_var results[2];
    const Value params(long_text);
    memory([&] {
      JSON_RPC_Object_var request(results[0]);
      answered[0] = JSON_RPC_Session::make_rpc_request("m", params, request) &&
                    session.request(request, results[0], 30);
      errors[0] = errno;
      answered[1] = session.request("m", nullptr, results[1], 30);
      errors[1] = errno;
    });
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(answered[i] || (memory.hit() && errors[i] == ENOMEM)) << errors[i];
      ASSERT_EQ(answered[i], results[i].get() != nullptr);
      if (!answered[i]) continue;
      EXPECT_EQ(Value(long_text), static_cast<JSON_RPC_Response&>(*results[i]).result);
    }
    waiting_->clear();
    EXPECT_TRUE(session.request("m", nullptr, results[0], 30));
  });
}

TEST_F(CallMemoryTest, CallsWithRetriesThatMayNotRetryFail) {
  at_every_allocation([](Failing_Memory& memory) {
    const JSON_RPC_Channel_var channel(new Answering_Channel);
    const Value params(1);
    Value result(1);
    bool called = false;
    int error = 0;
    memory([&] {
      called = send_rpc(channel, "m", params, &result, json_spirit::str_type, -1, 0);
      error = errno;
    });
    EXPECT_EQ(called ? Value(long_text) : Value(1), result);
    EXPECT_TRUE(called || (memory.hit() && error == ENOMEM)) << error;
  });
}

std::atomic<int> calls{0};

struct Pool_Handler final : JSON_RPC_Thread_Pool_Handler {
  int handle_object_i(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return ++calls, 0; }
};
// Threads are started before: ACE's thread manager crashes without memory.
TEST_F(CallMemoryTest, ThePoolRunsEveryCallThatItTookAndNoOther) {
  at_every_allocation(
      [](Failing_Memory& memory) {
        const JSON_RPC_Channel_var channel = make_fake_channel();
        const JSON_RPC_Object_var request = make_request("m", 1);
        Pool_Handler handler;
        calls = 0;
        ASSERT_EQ(0, JSON_RPC_Thread_Pool_Handler::activate("pool", 2, 8, 8));
        int result = -2;
        int error = 0;
        memory([&] {
          result = handler.handle_object(channel, request);
          error = errno;
        });
        EXPECT_TRUE(result == 0 || (memory.hit() && error == ENOMEM)) << error;
        EXPECT_EQ(0, handler.handle_object(channel, request));
        const auto end = std::chrono::steady_clock::now() + gate_patience;
        while (JSON_RPC_Thread_Pool_Handler::busy() > 0 && std::chrono::steady_clock::now() < end) {
          std::this_thread::yield();
        }
        EXPECT_EQ(result == 0 ? 2 : 1, calls);
        JSON_RPC_Thread_Pool_Handler::deactivate();
      },
      BALANCE_IGNORED);
}

// One worker fails to hand the end on while the other is at work. The second must not fail: ACE
// needs memory to note whom it has to join.
TEST_F(CallMemoryTest, APoolWhoseWorkerHasNoMemoryStops) {
  const Quiet_Log quiet;
  Thread_Pool_Helper pool(2, "pool", THR_NEW_LWP | THR_JOINABLE, ACE_DEFAULT_THREAD_PRIORITY, 0,
                          nullptr);
  ASSERT_EQ(0, pool.activate());
  Gate at_work;
  Gate may_end;
  pool.putq(
      [&] {
        at_work.arrive();
        may_end.wait();
      },
      false);
  ASSERT_TRUE(at_work.wait());
  pool.putq([] { Failing_Memory::starve_thread(Failing_Memory::ONE); }, false);
  Gate stopped;
  std::thread stopper([&] {
    EXPECT_EQ(0, pool.wait(false));
    stopped.arrive();
  });
  const auto end = std::chrono::steady_clock::now() + gate_patience;
  while (pool.thr_count() > 1 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  may_end.arrive();
  const bool ended = stopped.wait();
  if (!ended) pool.msg_queue()->deactivate();
  stopper.join();
  EXPECT_EQ(0, pool.activate()) << "it can be started again";
  EXPECT_EQ(1, pool.putq([] {}, false));
}

}  // namespace
