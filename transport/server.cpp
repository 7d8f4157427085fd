#include "transport/server.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "transport/connection.h"
#include "transport/endpoint.h"
#include "transport/link.h"
#include "transport/listener.h"
#include "transport/loop.h"
#include "transport/server_state.h"

namespace transport {

namespace asio = boost::asio;

namespace {

constexpr std::chrono::milliseconds poll_period{10};   // of what is owed, at the stop
constexpr std::chrono::milliseconds last_words{3000};  // for sending it

/// Often enough for the time-outs to be kept to about a quarter.
std::chrono::milliseconds tick_period(const Limits& limits) {
  const std::chrono::milliseconds shortest =
      std::min(limits.stall_timeout, limits.idle_timeout) / 4;
  return std::clamp(shortest, std::chrono::milliseconds(20), std::chrono::milliseconds(1000));
}

/// Has `operation` run on a loop's thread. It may run after its asker has given up waiting, so it
/// owns what it needs.
template <typename Operation>
auto ask(Loop& loop, Operation operation) {
  auto task = std::make_shared<std::packaged_task<decltype(operation())()>>(std::move(operation));
  auto result = task->get_future();
  asio::post(loop.context(), [task] { (*task)(); });
  return result;
}

typedef std::chrono::steady_clock Clock;

template <typename Result>
bool answered(std::future<Result>& result, Clock::time_point deadline) {
  return result.wait_until(deadline) == std::future_status::ready;
}

}  // namespace

struct Server::Impl : std::enable_shared_from_this<Server::Impl> {
  Impl(const Limits& limits, unsigned int threads)
      : state(std::make_shared<Server_State>(limits)),
        accept_loop(std::make_shared<Loop>(tick_period(limits))) {
    for (unsigned int i = 0; i < std::max(threads, 1u); ++i) {
      loops.push_back(std::make_shared<Loop>(tick_period(limits)));
    }
  }

  /// Has accepting go on when a connection goes. The last of those may outlive the server.
  void watch_connections() {
    state->connection_closed = [weak = weak_from_this()] {
      const std::shared_ptr<Impl> impl = weak.lock();
      if (impl != nullptr) impl->connection_closed();
    };
  }

  void connection_closed() {
    if (state->stopping || state->connections + 1 < state->limits.max_connections) return;
    asio::post(accept_loop->context(), [weak = weak_from_this()] {
      const std::shared_ptr<Impl> impl = weak.lock();
      if (impl != nullptr) impl->resume_listeners();
    });
  }

  std::shared_ptr<Loop> next_loop() { return loops[next++ % loops.size()]; }

  void resume_listeners() {
    for (const auto& listener : listeners) listener->resume();
  }

  /// Adds up what the connections say; false when a loop does not say in time.
  bool sum(std::size_t (Connection::*part)() const, Clock::time_point deadline,
           std::size_t& sum) const {
    sum = 0;
    for (const auto& loop : loops) {
      std::future<std::size_t> count = ask(*loop, [loop, part] { return of_members(*loop, part); });
      if (!answered(count, deadline)) return false;
      sum += count.get();
    }
    return true;
  }

  /// Has every loop do something with its connections, and end what is to become one; false when
  /// one did not get to it in time.
  bool for_each_connection(Clock::time_point deadline, void (*operation)(Connection&)) {
    std::vector<std::future<void>> done;
    for (const auto& loop : loops) {
      done.push_back(ask(*loop, [loop, operation] {
        for (const auto& member : loop->members()) {
          auto* const connection = dynamic_cast<Connection*>(member.get());
          connection == nullptr ? member->loop_ended() : operation(*connection);
        }
      }));
    }
    return std::all_of(done.begin(), done.end(),
                       [&](std::future<void>& future) { return answered(future, deadline); });
  }

  /// Asks again and again; whether it came true in time.
  static void wait_until(Clock::time_point deadline, const std::function<bool()>& done) {
    while (!done() && Clock::now() < deadline) std::this_thread::sleep_for(poll_period);
  }

  /// Each loop notes after its ticks what its connections have to do.
  void start_loops() {
    for (const auto& loop : loops) {
      figures.push_back(std::make_shared<Server_State::Figures>());
      loop->start([loop = loop.get(), figures = figures.back()] {
        figures->owed = of_members(*loop, &Connection::owed);
        figures->unsent = of_members(*loop, &Connection::unsent);
      });
    }
  }

  static std::size_t of_members(const Loop& loop, std::size_t (Connection::*part)() const) {
    std::size_t sum = 0;
    for (const auto& member : loop.members()) {
      const auto* const connection = dynamic_cast<const Connection*>(member.get());
      if (connection != nullptr) sum += (connection->*part)();
    }
    return sum;
  }

  void stop_loops() {
    accept_loop->stop();
    for (const auto& loop : loops) loop->stop();
  }

  const std::shared_ptr<Server_State> state;
  // Listeners have a loop of their own: a handler that holds one of the others keeps nobody out.
  const std::shared_ptr<Loop> accept_loop;
  std::vector<std::shared_ptr<Loop>> loops;
  // Until start() and after stop() the owner's, in between the accepting loop's.
  std::vector<std::unique_ptr<Listener>> listeners;
  std::vector<std::shared_ptr<Server_State::Figures>> figures;  // of the loops; set by start()
  std::vector<std::shared_ptr<Link>> links;                     // the owner's
  std::size_t next = 0;  // until start() the owner's, then the accepting loop's
  bool running = false;
};

Server::Server(const Limits& limits, unsigned int threads)
    : impl_(std::make_shared<Impl>(limits, threads)) {
  impl_->watch_connections();
}

Server::~Server() {
  stop(std::chrono::milliseconds(0));
  impl_->stop_loops();
}

int Server::listen(const std::string& url, std::string& bound, std::string& error) {
  return listen({url, std::make_shared<Stream_Door>(nullptr), nullptr}, bound, error);
}

int Server::listen(const Listen_Options& options, std::string& bound, std::string& error) {
  std::unique_ptr<Listener> listener = open_listener(
      options, impl_->accept_loop, impl_->state, [impl = impl_.get()] { return impl->next_loop(); },
      impl_->listeners.size(), error);
  if (listener == nullptr) return -1;
  bound = listener->endpoint().url();
  impl_->listeners.push_back(std::move(listener));
  return 0;
}

int Server::connect(const std::string& url, const Link_Options& options,
                    JSON_RPC_Channel_ptr& channel, std::string& error) {
  Endpoint endpoint;
  if (!Endpoint::parse(url, endpoint, error)) return -1;
  const std::shared_ptr<Link> link =
      std::make_shared<Link>(impl_->next_loop(), impl_->state, endpoint, options);
  impl_->links.push_back(link);
  channel = link->channel();
  return 0;
}

void Server::start() {
  std::vector<std::string> urls;
  for (const auto& listener : impl_->listeners) urls.push_back(listener->endpoint().url());
  impl_->state->metrics = std::make_unique<Metrics>(Metrics::registered_methods(), urls);
  for (const auto& listener : impl_->listeners) listener->start();
  impl_->accept_loop->start();
  for (const auto& link : impl_->links) link->start();
  impl_->start_loops();
  impl_->running = true;
}

int Server::stop(std::chrono::milliseconds drain) {
  Impl& impl = *impl_;
  if (!impl.running) return 0;
  impl.running = false;
  const Clock::time_point drained = Clock::now() + drain;
  const Clock::time_point end = drained + last_words;
  auto closed = ask(*impl.accept_loop, [&impl] {
    for (const auto& listener : impl.listeners) listener->close();
  });
  answered(closed, end);
  for (const auto& link : impl.links) {
    asio::post(link->loop()->context(), [weak = std::weak_ptr<Link>(link)] {
      if (const std::shared_ptr<Link> self = weak.lock()) self->close();
    });
  }
  impl.state->stopping = true;
  Impl::wait_until(drained, [&] {
    std::size_t owed = 0;
    return impl.sum(&Connection::owed, drained, owed) && owed == 0;
  });
  const bool told =
      impl.for_each_connection(end, [](Connection& connection) { connection.drain(); });
  if (told) {
    Impl::wait_until(end, [&] { return impl.state->connections == 0; });
  }
  if (!impl.for_each_connection(
          end + last_words, [](Connection& connection) { connection.close("the server stops"); })) {
    return -1;
  }
  impl.stop_loops();
  return 0;
}

std::size_t Server::connections() const { return impl_->state->connections; }

std::size_t Server::owed() const {
  std::size_t owed = 0;
  impl_->sum(&Connection::owed, Clock::time_point::max(), owed);
  return owed;
}

Server::Load Server::load() const {
  Load load;
  for (const auto& figures : impl_->figures) {
    load.owed += figures->owed;
    load.unsent += figures->unsent;
  }
  return load;
}

const Metrics& Server::metrics() const { return *impl_->state->metrics; }

bool Server::alive(std::chrono::milliseconds timeout) const {
  const Clock::time_point deadline = Clock::now() + timeout;
  std::vector<std::future<void>> answers;
  answers.push_back(ask(*impl_->accept_loop, [] {}));
  for (const auto& loop : impl_->loops) answers.push_back(ask(*loop, [] {}));
  return std::all_of(answers.begin(), answers.end(),
                     [=](std::future<void>& answer) { return answered(answer, deadline); });
}

std::size_t Server::unsent() const {
  std::size_t unsent = 0;
  impl_->sum(&Connection::unsent, Clock::time_point::max(), unsent);
  return unsent;
}

}  // namespace transport
