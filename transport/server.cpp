#include "transport/server.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "transport/connection.h"
#include "transport/endpoint.h"
#include "transport/listener.h"
#include "transport/loop.h"
#include "transport/server_state.h"

namespace asio = boost::asio;

namespace {

constexpr std::chrono::milliseconds poll_period{10};         // of what is owed, at the stop
constexpr std::chrono::milliseconds last_words{3000};  // for sending it

/// Often enough for the time-outs to be kept to about a quarter.
std::chrono::milliseconds tick_period(const Limits& limits) {
  const std::chrono::milliseconds shortest = std::min(limits.stall_timeout, limits.idle_timeout) / 4;
  return std::clamp(shortest, std::chrono::milliseconds(20), std::chrono::milliseconds(1000));
}

/// Runs `operation` on a loop's thread and waits for its result.
template <typename Operation>
auto on_loop(Loop& loop, Operation operation) {
  std::packaged_task<decltype(operation())()> task(std::move(operation));
  auto result = task.get_future();
  asio::post(loop.context(), [&task] { task(); });
  return result.get();
}

}  // namespace

struct Server::Impl {
  Impl(const Limits& limits, unsigned int threads) : state(std::make_shared<Server_State>(limits)) {
    for (unsigned int i = 0; i < std::max(threads, 1u); ++i) {
      loops.push_back(std::make_shared<Loop>(tick_period(limits)));
    }
    state->connection_closed = [this] {
      if (!state->stopping && state->connections + 1 >= state->limits.max_connections) {
        asio::post(accept_loop()->context(), [this] { resume_listeners(); });
      }
    };
  }

  const std::shared_ptr<Loop>& accept_loop() const { return loops.front(); }

  std::shared_ptr<Loop> next_loop() { return loops[next++ % loops.size()]; }

  void resume_listeners() {
    for (const auto& listener : listeners) listener->resume();
  }

  std::size_t owed() const {
    std::size_t sum = 0;
    for (const auto& loop : loops) {
      sum += on_loop(*loop, [&] {
        std::size_t count = 0;
        for (const auto& member : loop->members()) {
          count += static_cast<const Connection&>(*member).owed();
        }
        return count;
      });
    }
    return sum;
  }

  template <typename Operation>
  void for_each_connection(Operation operation) {
    for (const auto& loop : loops) {
      on_loop(*loop, [&] {
        for (const auto& member : loop->members()) operation(static_cast<Connection&>(*member));
      });
    }
  }

  static bool wait_until(std::chrono::milliseconds limit, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(poll_period);
    }
    return true;
  }

  const std::shared_ptr<Server_State> state;
  std::vector<std::shared_ptr<Loop>> loops;  // the first accepts
  std::vector<std::unique_ptr<Listener>> listeners;  // until start() this thread's, then the first
                                                     // loop's, after stop() this thread's
  std::size_t next = 0;                              // of the first loop
  bool running = false;
};

Server::Server(const Limits& limits, unsigned int threads)
    : impl_(std::make_unique<Impl>(limits, threads)) {}

Server::~Server() { stop(std::chrono::milliseconds(0)); }

int Server::listen(const std::string& url, std::string& bound, std::string& error) {
  Endpoint endpoint;
  if (!Endpoint::parse(url, endpoint, error)) return -1;
  std::unique_ptr<Listener> listener =
      open_listener(endpoint, impl_->accept_loop(), impl_->state,
                    [impl = impl_.get()] { return impl->next_loop(); }, error);
  if (listener == nullptr) return -1;
  bound = listener->endpoint().url();
  impl_->listeners.push_back(std::move(listener));
  return 0;
}

void Server::start() {
  for (const auto& listener : impl_->listeners) listener->start();
  for (const auto& loop : impl_->loops) loop->start();
  impl_->running = true;
}

void Server::stop(std::chrono::milliseconds drain) {
  Impl& impl = *impl_;
  if (!impl.running) return;
  impl.running = false;
  on_loop(*impl.accept_loop(), [&] {
    for (const auto& listener : impl.listeners) listener->close();
  });
  impl.state->stopping = true;
  Impl::wait_until(drain, [&] { return impl.owed() == 0; });
  impl.for_each_connection([](Connection& connection) { connection.drain(); });
  Impl::wait_until(last_words, [&] { return impl.state->connections == 0; });
  impl.for_each_connection([](Connection& connection) { connection.close("the server stops"); });
  for (const auto& loop : impl.loops) loop->stop();
}

std::size_t Server::connections() const { return impl_->state->connections; }

std::size_t Server::owed() const { return impl_->owed(); }
