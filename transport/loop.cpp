#include "transport/loop.h"

#include <pthread.h>
#include <time.h>

#include <new>
#include <utility>

#include "transport/loop_thread.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace {

constexpr std::chrono::milliseconds retry_after{10};

}  // namespace

Loop::Loop(std::chrono::milliseconds period)
    : context_(1),
      work_(boost::asio::make_work_guard(context_)),
      timer_(context_),
      period_(period),
      buffer_(new char[buffer_size]) {}

Loop::~Loop() { stop(); }

void Loop::start(std::function<void()> after_tick) {
  after_tick_ = std::move(after_tick);
  arm();
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "JSONRPCLoop");
    const Loop_Thread_Mark mark;
    for (;;) {
      try {
        context_.run();
        return;
      } catch (...) {
        // One handler ran out of memory, say: the others go on.
        VEXA_ERROR("A loop's handler failed: %C\n", vexa::exception_text());
      }
    }
  });
}

void Loop::stop() {
  if (!thread_.joinable()) return;
  context_.stop();
  thread_.join();
  // This thread is the only one left. Operations that are cancelled hold their members, which hold
  // this loop: they end here.
  for (const std::shared_ptr<Loop_Member>& member : members()) member->loop_ended();
  timer_.cancel();
  context_.restart();
  context_.poll();
}

/// The next round of ticks is due. Without memory it is tried again until there is some: a loop
/// without ticks would keep no limits.
void Loop::arm() {
  for (;;) {
    try {
      return arm_timer();
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(retry_after);
    }
  }
}

void Loop::arm_timer() {
  timer_.expires_after(period_);
  timer_.async_wait([this](const boost::system::error_code& error) {
    if (error) return;
    arm();  // first: what follows may run out of memory
    const Loop_Time time = now();
    for (const std::shared_ptr<Loop_Member>& member : members()) member->tick(time);
    if (after_tick_) after_tick_();
  });
}

void Loop::add(const std::shared_ptr<Loop_Member>& member) {
  members_.emplace(member.get(), member);
}

void Loop::remove(Loop_Member* member) { members_.erase(member); }

std::vector<std::shared_ptr<Loop_Member>> Loop::members() const {
  std::vector<std::shared_ptr<Loop_Member>> all;
  all.reserve(members_.size());
  for (const auto& entry : members_) all.push_back(entry.second);
  return all;
}

Loop_Time Loop::now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return Loop_Time(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

}  // namespace transport
