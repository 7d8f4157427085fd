#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "transport/transport_export.h"

namespace transport {

typedef std::chrono::steady_clock::time_point Loop_Time;

/// Something that lives on a loop. Neither operation throws.
class Loop_Member {
public:
  virtual ~Loop_Member() = default;
  virtual void tick(Loop_Time now) = 0;
  /// The loop has ended: give up what is pending, and remove() yourself.
  virtual void loop_ended() = 0;
  /// It was to be flushed soon.
  virtual void flush() {}
};

/// One thread and its io_context. What is pinned to a loop is touched by its thread alone, except
/// for post() on its context, which any thread may call.
class TRANSPORT_EXPORT Loop {
public:
  /// Members are ticked every `period`.
  explicit Loop(std::chrono::milliseconds period);
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  boost::asio::io_context& context() { return context_; }

  /// `after_tick` is called after each round of ticks, on the loop's thread.
  void start(std::function<void()> after_tick = nullptr);
  /// Ends the thread, after the handler that runs, and then what its members had pending. From
  /// another thread.
  void stop();

  /// The loop's thread, or none runs: keeps a member alive until remove().
  void add(const std::shared_ptr<Loop_Member>& member);
  void remove(Loop_Member* member);
  std::vector<std::shared_ptr<Loop_Member>> members() const;

  /// Has the member flushed on the loop's thread, if it is there still. Any thread: those that are
  /// to be flushed at one time share a wake-up. Throws std::bad_alloc.
  void flush_soon(std::weak_ptr<Loop_Member> member);

  /// The time, to a few milliseconds: cheap enough for every message.
  static Loop_Time now();

  /// A buffer for one read; what is in it is gone after the next.
  static constexpr std::size_t buffer_size = 256u << 10;
  char* buffer() { return buffer_.get(); }

private:
  void arm();
  void arm_timer();
  void flush_wanted();
  void take_turn();
  bool rest_comes();

  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
  boost::asio::steady_timer timer_;
  const std::chrono::milliseconds period_;
  std::function<void()> after_tick_;  // set by start()
  std::unique_ptr<char[]> buffer_;
  std::unordered_map<Loop_Member*, std::shared_ptr<Loop_Member>> members_;

  std::mutex wanted_mutex_;                         // a leaf, but for the queue of context_
  std::vector<std::weak_ptr<Loop_Member>> wanted_;  // to be flushed; guarded by wanted_mutex_
  std::size_t taken_ = 0;                           // of wanted_, from its front; the same
  bool woken_ = false;                              // flush_wanted() is queued, or runs; the same
  std::vector<std::weak_ptr<Loop_Member>> turn_;  // those of this turn; has its room from the start

  std::thread thread_;
};

}  // namespace transport
