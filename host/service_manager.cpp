#include "host/service_manager.h"

#include <pthread.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace {

constexpr int keep_environment = 0;

/// Without a manager this does nothing and is no failure.
void notify(const std::string& state) {
  const int result = sd_notify(keep_environment, state.c_str());
  if (result < 0) VEXA_WARNING("The service manager cannot be told: %C\n", std::strerror(-result));
}

/// The rest of a state's lines is no part of the status.
std::string status_line(const std::string& status) {
  return "STATUS=" + status.substr(0, status.find('\n'));
}

}  // namespace

void Service_Manager::ready(const std::string& status) {
  notify("READY=1\n" + status_line(status));
}

void Service_Manager::status(const std::string& status) { notify(status_line(status)); }

void Service_Manager::stopping(std::chrono::milliseconds at_most) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    stopping_ = true;
    stopped_by_ = Clock::now() + at_most;
  }
  notify("STOPPING=1\nSTATUS=stopping");
}

void Service_Manager::begin_watchdog(std::function<bool()> alive) {
  std::uint64_t period = 0;  // microseconds
  if (std::getenv("NOTIFY_SOCKET") == nullptr || watchdog_.joinable()) return;
  if (sd_watchdog_enabled(keep_environment, &period) <= 0) return;
  alive_ = std::move(alive);
  try {
    watchdog_ = std::thread([this, period] { watch(std::chrono::microseconds(period / 2)); });
  } catch (const std::system_error& error) {
    VEXA_ERROR("There is no thread for the watchdog, which will end the process: %C\n",
               error.what());
  }
}

void Service_Manager::end_watchdog() {
  if (!watchdog_.joinable()) return;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
  }
  wake_.notify_all();
  watchdog_.join();
}

/// The watchdog's thread. It reports at once: the first period began with the process.
void Service_Manager::watch(std::chrono::microseconds pause) {
  ::pthread_setname_np(::pthread_self(), "JSONRPCWatchdog");
  Clock::time_point next = Clock::now();
  std::unique_lock<std::mutex> guard(mutex_);
  while (!ended_) {
    const bool content = stopping_ && Clock::now() < stopped_by_;
    const bool asked = !stopping_;
    guard.unlock();
    if (content || (asked && shows_life())) notify("WATCHDOG=1");
    next = std::max(next + pause, Clock::now());
    guard.lock();
    wake_.wait_until(guard, next, [this] { return ended_; });
  }
}

bool Service_Manager::shows_life() {
  try {
    if (alive_()) return true;
    VEXA_WARNING("A loop does not answer: the watchdog is not told that all is well.\n");
  } catch (...) {
    VEXA_ERROR("Whether the loops answer cannot be told: %C\n", vexa::exception_text());
  }
  return false;
}
