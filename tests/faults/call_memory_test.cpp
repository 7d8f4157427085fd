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
  static int answer(const Value& id) {
    JSON_RPC_Object_var object(none_);
    {
      const Failing_Memory::Pause pause;
      object = JSON_RPC_Object_var(new JSON_RPC_Response(nullptr));
      object->id = id;
      static_cast<JSON_RPC_Response&>(*object).result = long_text;
    }
    JSON_RPC_Dispatcher::instance()->dispatch(none(), object);
    return 0;
  }
  static inline const JSON_RPC_Object_var none_{nullptr};
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
    bool made = false;
    bool called = false;
    bool generated = false;
    int errors[] = {0, 0};
    JSON_RPC_Object_var results[2];
    const Value params(long_text);
    memory([&] {
      JSON_RPC_Object_var request(results[0]);
      made = JSON_RPC_Session::make_rpc_request("m", params, request);
      if (!made) return;
      called = session.request(request, results[0], 30);
      if (!called) errors[0] = errno;
      generated = session.request("m", nullptr, results[1], 30);
      if (!generated) errors[1] = errno;
    });
    EXPECT_TRUE(memory.hit() || (made && called && generated));
    for (const int error : errors) EXPECT_TRUE(error == 0 || error == ENOMEM) << error;
    for (int i = 0; i < 2; ++i) {
      const bool answered = i == 0 ? called : generated;
      ASSERT_EQ(answered, results[i].get() != nullptr);
      if (!answered) continue;
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

TEST_F(CallMemoryTest, APoolWhoseWorkersHaveNoMemoryStops) {
  const Quiet_Log quiet;
  constexpr int workers = 3;
  Thread_Pool_Helper pool(workers, "pool", THR_NEW_LWP | THR_JOINABLE, ACE_DEFAULT_THREAD_PRIORITY,
                          0, nullptr);
  ASSERT_EQ(0, pool.activate());
  Gate busy(workers);
  for (int i = 0; i < workers; ++i) {
    pool.putq(
        [&busy] {
          busy.meet();
          Failing_Memory::starve_thread();
        },
        false);
  }
  Gate stopped;
  std::thread stopper([&] {
    EXPECT_EQ(0, pool.wait(false));
    stopped.arrive();
  });
  const bool ended = stopped.wait();
  if (!ended) pool.msg_queue()->deactivate();
  stopper.join();
  EXPECT_EQ(0, pool.activate()) << "it can be started again";
  EXPECT_EQ(1, pool.putq([] {}, false));
}

}  // namespace
