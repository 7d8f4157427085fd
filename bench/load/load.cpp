#include "bench/load/load.h"

#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <string_view>

#include "bench/load/dialect.h"

// One thread: it sends what is due, reads what came, and sleeps until either. The calls are
// numbered in the order of their times, and the number is a call's id.

namespace {

typedef std::uint64_t Nanoseconds;

constexpr Nanoseconds second = 1000000000;

Nanoseconds now() {
  timespec time;
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * second + time.tv_nsec;
}

class Run {
public:
  Run(const Load& load, Result& result);
  ~Run();
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  bool connect(std::string& error);
  void go();

private:
  struct Link {
    int socket;
    std::unique_ptr<Dialect> dialect;
    std::string in;
    std::string out;
    std::vector<std::uint64_t> pending;  // the ids, in the order of the calls
    bool queued;                         // stands in free_
    bool waits_for_room;                 // the socket takes no more
  };

  Nanoseconds due(std::uint64_t call) const {
    return begin_ + static_cast<Nanoseconds>(call * (second / load_.rate));
  }
  void send_due(Nanoseconds time);
  void issue(Link& link, std::uint64_t call);
  void wait(Nanoseconds time);
  void flush(Link& link);
  void watch(Link& link, bool for_room, int operation);
  void read(Link& link);
  void take_answers(Link& link, Nanoseconds time);
  void take(Link& link, const Dialect::Found& found, Nanoseconds time);
  void settle(std::uint64_t call, Nanoseconds time, const std::string& error);
  void offer(Link& link);
  void close(Link& link, const std::string& reason);
  Nanoseconds give_up();

  const Load& load_;
  Result& result_;
  const std::uint64_t calls_;    // in all
  const std::uint64_t counted_;  // the first one that counts
  const int epoll_;
  std::vector<Link> links_;
  std::deque<Link*> free_;              // may send one more call
  std::vector<unsigned char> methods_;  // of each call
  std::uint64_t next_ = 0;              // the next call to send
  std::uint64_t settled_ = 0;
  std::uint64_t answers_ = 0;  // that count
  std::size_t open_ = 0;       // links
  Nanoseconds begin_ = 0;
  Nanoseconds last_answer_ = 0;
};

/// Which method each call is of: in a random order, the same in each run.
std::vector<unsigned char> draw(const std::vector<Method>& methods, std::uint64_t calls) {
  std::vector<double> weights;
  for (const Method& method : methods) weights.push_back(method.weight);
  std::discrete_distribution<int> distribution(weights.begin(), weights.end());
  std::minstd_rand random(1);
  std::vector<unsigned char> drawn(calls);
  for (unsigned char& method : drawn) method = distribution(random);
  return drawn;
}

Run::Run(const Load& load, Result& result)
    : load_(load),
      result_(result),
      calls_(std::llround(load.rate * (load.warm_up + load.seconds))),
      counted_(std::llround(load.rate * load.warm_up)),
      epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      methods_(draw(load.methods, calls_)) {
  result_.asked = load.rate;
  result_.methods.resize(load.methods.size());
}

Run::~Run() {
  for (Link& link : links_) {
    if (link.socket != -1) ::close(link.socket);
  }
  if (epoll_ != -1) ::close(epoll_);
}

bool Run::connect(std::string& error) {
  links_.reserve(load_.connections);  // free_ points into it
  while (links_.size() < load_.connections) {
    const int socket = load_.door.connect(error);
    if (socket == -1) return false;
    links_.push_back({socket, make_dialect(load_.door), {}, {}, {}, false, false});
    ++open_;
    watch(links_.back(), false, EPOLL_CTL_ADD);
    offer(links_.back());
  }
  return true;
}

void Run::watch(Link& link, bool for_room, int operation) {
  epoll_event event = {};
  event.events = EPOLLIN | (for_room ? EPOLLOUT : 0u);
  event.data.ptr = &link;
  if (::epoll_ctl(epoll_, operation, link.socket, &event) != 0) close(link, "no epoll");
  link.waits_for_room = for_room;
}

void Run::go() {
  begin_ = now();
  const Nanoseconds end = due(calls_) + static_cast<Nanoseconds>(load_.grace * second);
  while (settled_ < calls_ && open_ > 0) {
    const Nanoseconds time = now();
    if (time >= end) break;
    send_due(time);
    wait(next_ < calls_ && !free_.empty() ? due(next_) : end);
  }
  result_.cut = open_ == 0 && settled_ < calls_;
  const Nanoseconds stopped = give_up();
  const Nanoseconds counted_until = std::max(last_answer_, std::min(stopped, due(calls_)));
  if (counted_until > due(counted_)) {
    result_.reached = answers_ * static_cast<double>(second) / (counted_until - due(counted_));
  }
  for (const Outcome& outcome : result_.methods) result_.all.add(outcome);
}

/// Sends the calls whose time has come, on the connections in turn, as far as those have room.
void Run::send_due(Nanoseconds time) {
  std::vector<Link*> used;
  while (next_ < calls_ && due(next_) <= time && !free_.empty()) {
    Link& link = *free_.front();
    free_.pop_front();
    link.queued = false;
    if (link.out.empty()) used.push_back(&link);
    issue(link, next_++);
    offer(link);
  }
  for (Link* link : used) flush(*link);
}

void Run::offer(Link& link) {
  if (link.queued || link.socket == -1 || link.pending.size() >= load_.depth) return;
  link.queued = true;
  free_.push_back(&link);
}

void Run::issue(Link& link, std::uint64_t call) {
  const Method& method = load_.methods[methods_[call]];
  std::string text =
      R"({"jsonrpc":"2.0","id":)" + std::to_string(call) + R"(,"method":")" + method.name + '"';
  if (!method.params.empty()) text += ",\"params\":" + method.params;
  text += '}';
  link.dialect->add_call(text, link.out);
  link.pending.push_back(call);
}

void Run::flush(Link& link) {
  while (link.socket != -1 && !link.out.empty()) {
    const ssize_t sent =
        ::send(link.socket, link.out.data(), link.out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent == -1 && errno == EINTR) continue;
    if (sent == -1 && errno != EAGAIN) return close(link, "closed");
    if (sent == -1) break;
    link.out.erase(0, sent);
  }
  if (link.socket == -1 || link.waits_for_room == !link.out.empty()) return;
  watch(link, !link.out.empty(), EPOLL_CTL_MOD);
}

/// Until something came, or that time.
void Run::wait(Nanoseconds time) {
  const Nanoseconds present = now();
  const Nanoseconds left = time > present ? time - present : 0;
  const timespec timeout = {static_cast<time_t>(left / second), static_cast<long>(left % second)};
  std::array<epoll_event, 128> events;
  const int count = ::epoll_pwait2(epoll_, events.data(), events.size(), &timeout, nullptr);
  for (int i = 0; i < count; ++i) {
    Link& link = *static_cast<Link*>(events[i].data.ptr);
    if (events[i].events & EPOLLOUT) flush(link);
    if (link.socket != -1 && (events[i].events & ~EPOLLOUT)) read(link);
  }
}

void Run::read(Link& link) {
  std::array<char, 65536> buffer;
  const ssize_t length = ::recv(link.socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (length == -1 && (errno == EAGAIN || errno == EINTR)) return;
  if (length <= 0) return close(link, "closed");
  const Nanoseconds time = now();
  link.in.append(buffer.data(), length);
  take_answers(link, time);
  offer(link);
}

void Run::take_answers(Link& link, Nanoseconds time) {
  std::size_t used = 0;
  for (;;) {
    const Dialect::Found found = link.dialect->find_answer(std::string_view(link.in).substr(used));
    if (found.broken) return close(link, "not understood");
    if (found.used == 0) break;
    used += found.used;
    link.out += found.reply;
    if (!found.answers_none) take(link, found, time);
  }
  link.in.erase(0, used);
  flush(link);
}

/// One answer. Where it does not say whose it is, the order does, or nobody.
void Run::take(Link& link, const Dialect::Found& found, Nanoseconds time) {
  unsigned long long id = 0;
  int code = 0;
  std::string error;
  const bool known = read_answer(found.answer, id, code);
  if (code != 0) error = std::to_string(code);
  if (found.status != 200) error = "HTTP " + std::to_string(found.status);
  if (!known && error.empty()) error = "not understood";
  auto it = link.pending.begin();
  if (known) it = std::find(it, link.pending.end(), id);
  if (it == link.pending.end() || (!known && !link.dialect->in_order())) {
    ++result_.all.errors["stray"];
    return;
  }
  const std::uint64_t call = *it;
  link.pending.erase(it);
  if (call >= counted_) ++answers_;
  last_answer_ = time;
  settle(call, time, error);
}

/// A call that comes to nothing counts with the time that was spent on it: left out, it would make
/// the rest look better.
void Run::settle(std::uint64_t call, Nanoseconds time, const std::string& error) {
  ++settled_;
  if (call < counted_) return;
  Outcome& outcome = result_.methods[methods_[call]];
  outcome.latencies.add(time - std::min(time, due(call)));
  if (!error.empty()) ++outcome.errors[error];
}

/// What was pending on it is lost, and the load goes on over the others.
void Run::close(Link& link, const std::string& reason) {
  ::close(link.socket);
  link.socket = -1;
  --open_;
  free_.erase(std::remove(free_.begin(), free_.end(), &link), free_.end());
  const Nanoseconds time = now();
  for (const std::uint64_t call : link.pending) settle(call, time, reason);
  link.pending.clear();
}

/// The end: for the calls that were not answered in time, and those that never found a place. Those
/// whose time has not come do not count.
Nanoseconds Run::give_up() {
  const Nanoseconds time = now();
  for (const Link& link : links_) {
    for (const std::uint64_t call : link.pending) settle(call, time, "no answer");
  }
  for (; next_ < calls_ && due(next_) <= time; ++next_) settle(next_, time, "not sent");
  return time;
}

}  // namespace

void Outcome::add(const Outcome& other) {
  latencies.add(other.latencies);
  for (const auto& error : other.errors) errors[error.first] += error.second;
}

bool run_load(const Load& load, Result& result, std::string& error) {
  ::prctl(PR_SET_TIMERSLACK,
          1000ul);  // nanoseconds; the default delays each wait by fifty times that
  Run run(load, result);
  if (!run.connect(error)) return false;
  run.go();
  return true;
}
