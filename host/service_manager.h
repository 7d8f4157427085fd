#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// Tells systemd how the process fares, as a unit of Type=notify wants it: ready, a line of status,
/// stopping, and, where the unit has a watchdog, that the process still does its work. Nothing
/// happens, and no thread runs, without NOTIFY_SOCKET in the environment. One thread calls
/// everything here.
class Service_Manager {
public:
  Service_Manager() = default;
  ~Service_Manager() { end_watchdog(); }
  Service_Manager(const Service_Manager&) = delete;
  Service_Manager& operator=(const Service_Manager&) = delete;

  /// The process serves. `status` is a line for people, here and below; a line feed ends it.
  void ready(const std::string& status);
  void status(const std::string& status);

  /// The process stops, and will have ended after `at_most`. For so long the watchdog is content
  /// without asking: loops that have ended do not answer.
  void stopping(std::chrono::milliseconds at_most);

  /// From now on, where the unit has a watchdog, a thread asks `alive` twice in each of its periods
  /// and reports where that gives true. A process that does not report is ended by systemd. `alive`
  /// comes back within a quarter of the period; one that throws was no sign of life. It is called
  /// by that thread alone, and no more once stopping() or end_watchdog() was called.
  void begin_watchdog(std::function<bool()> alive);
  /// Waits for a call of `alive` that runs: before what that asks goes.
  void end_watchdog();

private:
  typedef std::chrono::steady_clock Clock;

  void watch(std::chrono::microseconds pause);
  bool shows_life();

  std::function<bool()> alive_;   // the watchdog thread's, once that runs
  std::mutex mutex_;              // a leaf
  std::condition_variable wake_;  // of the watchdog's pauses, with mutex_; end_watchdog() ends them
  bool ended_ = false;            // guarded by mutex_
  bool stopping_ = false;         // guarded by mutex_
  Clock::time_point stopped_by_;  // guarded by mutex_; where stopping_
  std::thread watchdog_;
};
