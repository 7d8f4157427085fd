#include "transport/loop.h"

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <iterator>
#include <new>
#include <utility>

#include "transport/loop_thread.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace {

constexpr std::chrono::milliseconds retry_after{10};
constexpr std::size_t flushed_a_turn = 64;

}  // namespace

Loop::Loop(std::chrono::milliseconds period)
    : context_(1),
      work_(boost::asio::make_work_guard(context_)),
      timer_(context_),
      period_(period),
      buffer_(new char[buffer_size]) {
  turn_.reserve(flushed_a_turn);
}

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

void Loop::flush_soon(std::weak_ptr<Loop_Member> member) {
  const std::lock_guard<std::mutex> guard(wanted_mutex_);
  wanted_.push_back(std::move(member));
  if (woken_) return;
  boost::asio::post(context_, [this] { flush_wanted(); });
  woken_ = true;
}

/// Many at a time, but what else the loop has to do comes between, unless there is no memory for
/// that.
void Loop::flush_wanted() {
  do {
    take_turn();
    for (const std::weak_ptr<Loop_Member>& wanted : turn_) {
      try {
        if (const std::shared_ptr<Loop_Member> member = wanted.lock()) member->flush();
      } catch (...) {
        VEXA_ERROR("A loop's handler failed: %C\n", vexa::exception_text());
      }
    }
    turn_.clear();
  } while (!rest_comes());
}

void Loop::take_turn() {
  const std::lock_guard<std::mutex> guard(wanted_mutex_);
  const auto begin = wanted_.begin() + static_cast<std::ptrdiff_t>(taken_);
  const std::size_t count = std::min(wanted_.size() - taken_, flushed_a_turn);
  const auto end = begin + static_cast<std::ptrdiff_t>(count);
  turn_.assign(std::make_move_iterator(begin), std::make_move_iterator(end));
  taken_ += count;
  if (2 * taken_ < wanted_.size()) return;  // what is left moves once, not at every turn
  wanted_.erase(wanted_.begin(), end);
  taken_ = 0;
}

/// Whether there are no more, or another turn is queued for them.
bool Loop::rest_comes() {
  const std::lock_guard<std::mutex> guard(wanted_mutex_);
  woken_ = !wanted_.empty();
  if (!woken_) return true;
  try {
    boost::asio::post(context_, [this] { flush_wanted(); });
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

Loop_Time Loop::now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return Loop_Time(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

}  // namespace transport
