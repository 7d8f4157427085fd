#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

/// How long a test waits for another thread before it fails; far beyond what a sanitizer needs.
constexpr std::chrono::seconds gate_patience(10);

/// Opens for good once `parties` threads have arrived. Threads that start together meet() at it; a
/// thread that only gives the sign calls arrive(), one that only needs it calls wait().
class Gate {
public:
  explicit Gate(int parties = 1) : missing_(parties) {}
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  /// Arrivals beyond the parties change nothing.
  void arrive() {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (missing_ > 0 && --missing_ == 0) opened_.notify_all();
  }

  /// Until the gate is open. After gate_patience the test has failed and the result is false.
  bool wait() {
    std::unique_lock<std::mutex> guard(mutex_);
    if (opened_.wait_for(guard, gate_patience, [this] { return missing_ == 0; })) return true;
    ADD_FAILURE() << "still waiting for " << missing_ << " more at a gate";
    return false;
  }

  bool meet() {
    arrive();
    return wait();
  }

private:
  std::mutex mutex_;
  std::condition_variable opened_;
  int missing_;  // guarded by mutex_
};
