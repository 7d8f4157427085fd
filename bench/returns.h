#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

/// Where calls that other threads make are counted as they come back. One thread waits.
class Returns {
public:
  /// So many calls are handed over next.
  void expect(std::size_t calls) { left_.store(calls, std::memory_order_relaxed); }

  void came_back() {
    if (left_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    const std::lock_guard<std::mutex> guard(lock_);
    all_ = true;
    changed_.notify_one();
  }

  /// Until all have come back.
  void wait() {
    std::unique_lock<std::mutex> guard(lock_);
    changed_.wait(guard, [this] { return all_; });
    all_ = false;
  }

private:
  std::atomic<std::size_t> left_{0};
  std::mutex lock_;
  std::condition_variable changed_;  // for all_; the last call ends a wait
  bool all_ = false;                 // guarded by lock_
};
