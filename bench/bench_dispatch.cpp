// A request from the dispatcher to each kind of handler and back, 256 at a time: real time and the
// CPU time of all threads. Floors: a virtual call; a detached std::thread for each call; a plain
// queue with two workers, for both kinds of pool handlers.

#include <memory>
#include <thread>

#include "bench/bench_channel.h"
#include "bench/give_up.h"
#include "bench/pairs.h"
#include "bench/plain_pool.h"
#include "bench/returns.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler_impl.h"

namespace {

constexpr std::size_t workers = 2;
constexpr std::size_t calls = 256;

Returns returns;

struct On_The_Spot final : JSON_RPC_Handler {
  On_The_Spot() { silent_ = true; }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    returns.came_back();
    return 0;
  }
};
struct On_Its_Thread final : JSON_RPC_Thread_Handler {
  On_Its_Thread() { silent_ = true; }
  int handle_object_i(JSON_RPC_Channel_var, JSON_RPC_Object_var) override {
    returns.came_back();
    return 0;
  }
};
struct On_The_Pool final : JSON_RPC_Thread_Pool_Handler {
  On_The_Pool() { silent_ = true; }
  int handle_object_i(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    returns.came_back();
    return 0;
  }
};
struct Typed final : JSON_RPC_Thread_Pool_Handler_Impl {
  Typed() { silent_ = true; }
  int handle_request(JSON_RPC_Channel*, JSON_RPC_Request&) override {
    returns.came_back();
    return 0;
  }
};

/// Makes the calls and waits for them.
template <typename Call>
int run(Call call) {
  returns.expect(calls);
  for (std::size_t i = 0; i < calls; ++i) call();
  returns.wait();
  return 0;
}

/// Dispatches requests for one method.
class Ours {
public:
  explicit Ours(const std::string& method) : channel_(new Bench_Channel), weak_(channel_) {
    auto* const request = new JSON_RPC_Request;
    request->method = method;
    request->id = 12345;
    request_.reset(request);
  }
  int operator()() {
    return run([this] {
      if (JSON_RPC_Dispatcher::instance()->dispatch(weak_, request_) != 0) {
        give_up("not dispatched");
      }
    });
  }

private:
  const JSON_RPC_Channel_var channel_;
  const JSON_RPC_Channel_ptr weak_;
  JSON_RPC_Object_var request_{nullptr};
};

struct Callee {
  virtual ~Callee() = default;
  virtual void call() = 0;
};
struct Counting_Callee final : Callee {
  void call() override { returns.came_back(); }
};

int call_virtually() {
  static const std::unique_ptr<Callee> callee = std::make_unique<Counting_Callee>();
  Callee* it = callee.get();
  benchmark::DoNotOptimize(it);
  return run([&] { it->call(); });
}

int call_on_threads() {
  return run([] { std::thread([] { returns.came_back(); }).detach(); });
}

int call_on_queue() {
  static Plain_Pool pool(workers);
  static const auto channel = std::make_shared<int>(), message = std::make_shared<int>();
  return run([] { pool.put([c = channel, m = message, r = &returns] { r->came_back(); }); });
}

void add(const std::string& name, int (*floor)(), JSON_RPC_Handler* handler) {
  JSON_RPC_Request_Map::instance()->insert(name, "", handler, nullptr);
  pairs::add_threaded_pair(name, floor, Ours(name));
}

}  // namespace

int main(int argc, char** argv) {
  if (On_The_Pool::activate("bench", workers, 100'000, 100'000) != 0) give_up("no pool");
  JSON_RPC_Dispatcher::instance();
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_EMERGENCY, ACE_Log_Msg::PROCESS);
  add("on the spot", call_virtually, new On_The_Spot);
  add("a thread of its own", call_on_threads, new On_Its_Thread);
  add("the pool", call_on_queue, new On_The_Pool);
  add("the pool by kind", call_on_queue, new Typed);
  const int status = pairs::run(argc, argv);
  On_The_Pool::deactivate();
  JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10));
  return status;
}
