// Calls in both directions over one connection, with more in flight than its buffers hold.

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "json_rpc/json_rpc_session.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "tests/transport/stream_fixture.h"
#include "transport/server.h"

namespace {

typedef json_spirit::Value Value;

/// Answers with what a function makes of the params, on a thread of its own.
class Function_Handler final : public JSON_RPC_Thread_Handler {
public:
  typedef std::function<Value(const JSON_RPC_Channel_var& channel, const Value& params)> Function;
  explicit Function_Handler(Function function) : function_(std::move(function)) {}

  int handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object) override {
    const auto& request = static_cast<const JSON_RPC_Request&>(*object);
    return channel->send(make_response(request.id, function_(channel, request.params)));
  }

private:
  const Function function_;
};

/// A server that is linked to itself: `near_` and `far_` are the two ends of one connection.
class DuplexTest : public Stream_Fixture {
protected:
  /// The registries that the loops use exist before them.
  DuplexTest() {
    JSON_RPC_Channel_Map::instance();
    JSON_RPC_Channel_Pool::instance();
    JSON_RPC_Dispatcher::instance();
    JSON_RPC_Notify_Manager::instance();
    JSON_RPC_Params_Handler_Map::instance();
    JSON_RPC_Response_Map::instance();
  }
  void start() {
    const std::string url = "unix:///tmp/duplex." + std::to_string(::getpid());
    serve("end", [this](const JSON_RPC_Channel_var& channel, const Value&) {
      far_ = channel;
      return Value(true);
    });
    serve("large", [](const JSON_RPC_Channel_var&, const Value&) { return large(); });
    serve("echo", [](const JSON_RPC_Channel_var&, const Value& params) { return params; });
    serve("size", [](const JSON_RPC_Channel_var&, const Value& params) {
      return Value(static_cast<std::int64_t>(params.get_str().size()));
    });
    serve("back", [](const JSON_RPC_Channel_var& channel, const Value&) {
      return call(channel, "size", "four", 10);
    });
    server_ = std::make_unique<Server>(limits_, 2);
    std::promise<void> up;
    Link_Options options;
    options.reconnect = false;
    options.changed = [&up](bool is_up, const std::string&) {
      if (is_up) up.set_value();
    };
    std::string bound, error;
    JSON_RPC_Channel_ptr channel;
    ASSERT_EQ(0, server_->listen(url, bound, error)) << error;
    ASSERT_EQ(0, server_->connect(url, options, channel, error)) << error;
    server_->start();
    up.get_future().wait();
    near_ = JSON_RPC_Channel_var(channel);
    ASSERT_EQ(Value(true), call(near_, "end", Value(), 10));
  }
  void TearDown() override {
    near_ = JSON_RPC_Channel_var();
    far_ = JSON_RPC_Channel_var();
    EXPECT_EQ(0, server_->stop(std::chrono::seconds(1)));
    EXPECT_TRUE(JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10)));
    ACE_Thread_Manager::instance()->wait();
  }

  static void serve(const std::string& method, Function_Handler::Function function) {
    JSON_RPC_Request_Map::instance()->insert(method, "", new Function_Handler(std::move(function)),
                                             nullptr);
  }

  static Value large() { return Value(std::string(1u << 20, 'x')); }

  /// The result, or null.
  static Value call(const JSON_RPC_Channel_var& channel, const char* method, const Value& params,
                    time_t timeout) {
    JSON_RPC_Session session;
    session.reset(channel);
    JSON_RPC_Object_var request, answer;
    const bool answered = JSON_RPC_Session::make_rpc_request(method, params, request) &&
                          session.request(request, answer, timeout);
    if (!answered || answer->type != JSON_RPC_Object::TYPE_RESPONSE) return Value();
    return static_cast<const JSON_RPC_Response&>(*answer).result;
  }

  /// Calls from several threads on each of `channels`; how many got `expected`.
  static int answered(const std::vector<JSON_RPC_Channel_var>& channels, int callers,
                      const char* method, const Value& params, const Value& expected) {
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (const JSON_RPC_Channel_var& channel : channels) {
      for (int i = 0; i < callers; ++i) {
        threads.emplace_back([&] { right += call(channel, method, params, 60) == expected; });
      }
    }
    for (std::thread& thread : threads) thread.join();
    return right;
  }

  std::unique_ptr<Server> server_;
  JSON_RPC_Channel_var near_;
  JSON_RPC_Channel_var far_;
};

TEST_F(DuplexTest, LargeAnswersAndLargeCallsGoBothWaysAtOnce) {
  limits_.max_queue = 24u << 20;
  limits_.stall_timeout = std::chrono::seconds(3);
  start();
  const std::vector<JSON_RPC_Channel_var> both = {near_, far_};
  EXPECT_EQ(32, answered(both, 16, "large", Value(), large()));
  EXPECT_EQ(32, answered(both, 16, "size", large(), Value(1 << 20)));
  EXPECT_EQ(32, answered(both, 16, "echo", large(), large()));
}

TEST_F(DuplexTest, HandlersThatCallBackAreAnsweredAlthoughNoMoreMayBeInWork) {
  limits_.max_pending = 2;
  start();
  EXPECT_EQ(8, answered({near_}, 8, "back", Value(), Value(4)));
}

}  // namespace
