// Calls handed over to the pool and back, by 1 to 4 producers, beside a plain queue. Each producer
// hands over a window of calls, and the next one when these have come back. Two workers; real time
// and the CPU time of all threads of one iteration, which is 2048 calls.

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "bench/bench_channel.h"
#include "bench/give_up.h"
#include "bench/pairs.h"
#include "bench/plain_pool.h"
#include "bench/returns.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"

namespace {

constexpr std::size_t workers = 2;
constexpr std::size_t calls = 2048;

struct Plan {
  std::size_t producers;
  std::size_t window;
};

/// Hands over all calls; `hand_over(returns)` is one.
template <typename Hand_Over>
int produce(const Plan& plan, Hand_Over hand_over) {
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < plan.producers; ++i) {
    threads.emplace_back([&] {
      Returns returns;
      for (std::size_t left = calls / plan.producers; left > 0; left -= plan.window) {
        returns.expect(plan.window);
        for (std::size_t n = 0; n < plan.window; ++n) hand_over(returns);
        returns.wait();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return 0;
}

class Floor {
public:
  Floor() : pool_(workers), channel_(std::make_shared<int>()), message_(std::make_shared<int>()) {}
  int run(const Plan& plan) {
    return produce(plan, [this](Returns& returns) {
      pool_.put([this, &returns, channel = channel_, message = message_] { handle(returns); });
    });
  }

private:
  void handle(Returns& returns) { returns.came_back(); }

  Plain_Pool pool_;
  const std::shared_ptr<int> channel_;
  const std::shared_ptr<int> message_;
};

/// A producer's own message tells where its calls come back.
struct Message final : JSON_RPC_Object {
  explicit Message(Returns& r) : JSON_RPC_Object(TYPE_REQUEST), returns(r) {}
  Returns& returns;
};

class Back final : public JSON_RPC_Thread_Pool_Handler {
  int handle_object_i(JSON_RPC_Channel_ptr, JSON_RPC_Object_var message) override {
    static_cast<Message&>(*message).returns.came_back();
    return 0;
  }
};

class Ours {
public:
  Ours() : channel_(new Bench_Channel), weak_(channel_) {
    if (Back::activate("bench", workers, 100'000, 100'000) != 0) give_up("no pool");
  }
  int run(const Plan& plan) {
    return produce(plan, [this](Returns& returns) {
      thread_local JSON_RPC_Object_var message(new Message(returns));
      if (handler_.handle_object(weak_, message) != 0) give_up("not handed over");
    });
  }

private:
  const JSON_RPC_Channel_var channel_;
  const JSON_RPC_Channel_ptr weak_;
  Back handler_;
};

}  // namespace

int main(int argc, char** argv) {
  Floor floor;
  Ours ours;
  for (const std::size_t window : {1, 64}) {
    for (const std::size_t producers : {1, 2, 4}) {
      const Plan plan = {producers, window};
      pairs::add_threaded_pair(
          std::to_string(producers) + " producers with windows of " + std::to_string(window),
          [&floor, plan] { return floor.run(plan); }, [&ours, plan] { return ours.run(plan); });
    }
  }
  const int status = pairs::run(argc, argv);
  Back::deactivate();
  return status;
}
