#include "tools/json_rpc_call/bench.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tools/json_rpc_call/answer.h"
#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/progress.h"

namespace {

typedef std::chrono::steady_clock Clock;
typedef std::vector<std::uint64_t> Times;  // nanoseconds

std::uint64_t nanoseconds_since(Clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
}

/// What the threads share.
class Run {
public:
  explicit Run(std::size_t calls) : calls_(calls) {}

  /// One thread's part.
  void work(Bench_Caller& caller) {
    Times times;
    JSON_RPC_Object_var answer;
    std::string error;
    while (begun_.fetch_add(1, std::memory_order_relaxed) < calls_) {
      const Clock::time_point begin = Clock::now();
      if (!caller.call(answer, error)) {
        fail(error);
        break;
      }
      times.push_back(nanoseconds_since(begin));
      done_.fetch_add(1, std::memory_order_relaxed);
      if (answer.get() == nullptr || answer->type != JSON_RPC_Object::TYPE_RESPONSE) note(answer);
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    times_.insert(times_.end(), times.begin(), times.end());
  }

  std::size_t done() const { return done_; }

  // Once the threads have ended.
  Times& times() { return times_; }
  std::size_t errors() const { return errors_; }
  const JSON_RPC_Object_var& first_error() const { return first_error_; }
  const std::string& failure() const { return failure_; }

private:
  void fail(const std::string& reason) {
    begun_ = calls_;  // nobody begins another
    const std::lock_guard<std::mutex> guard(mutex_);
    if (failure_.empty()) failure_ = reason;
  }

  void note(const JSON_RPC_Object_var& error) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (errors_++ == 0) first_error_ = error;
  }

  const std::size_t calls_;
  std::atomic<std::size_t> begun_{0};
  std::atomic<std::size_t> done_{0};
  std::mutex mutex_;
  Times times_;  // guarded by mutex_, like all that follows
  std::size_t errors_ = 0;
  JSON_RPC_Object_var first_error_;
  std::string failure_;
};

/// The time within which that share of the sorted calls was answered, in milliseconds.
double percentile(const Times& times, double share) {
  const std::size_t rank = static_cast<std::size_t>(share * static_cast<double>(times.size()));
  return static_cast<double>(times[std::min(rank, times.size() - 1)]) / 1e6;
}

std::string report(Times& times, double seconds) {
  std::sort(times.begin(), times.end());
  char text[512];
  std::snprintf(text, sizeof text,
                "calls    %zu\nseconds  %.3f\ncalls/s  %.0f\np50      %.3f ms\np90      %.3f ms\n"
                "p99      %.3f ms\np99.9    %.3f ms\nmax      %.3f ms",
                times.size(), seconds, static_cast<double>(times.size()) / seconds,
                percentile(times, 0.5), percentile(times, 0.9), percentile(times, 0.99),
                percentile(times, 0.999), percentile(times, 1));
  return text;
}

}  // namespace

int bench(const Options& options,
          const std::function<std::unique_ptr<Bench_Caller>()>& new_caller) {
  Run run(options.bench);
  const Clock::time_point begin = Clock::now();
  {
    const Progress progress([&](std::chrono::seconds elapsed) {
      return std::to_string(run.done()) + " of " + std::to_string(options.bench) + " calls done, " +
             std::to_string(elapsed.count()) + " s";
    });
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < options.concurrency; ++i) {
      threads.emplace_back([&] { run.work(*new_caller()); });
    }
    for (std::thread& thread : threads) thread.join();
  }
  const double seconds = static_cast<double>(nanoseconds_since(begin)) / 1e9;
  if (!run.times().empty()) print_line(report(run.times(), seconds));
  if (!run.failure().empty()) return complain(run.failure());
  if (run.errors() == 0) return EXIT_ANSWERED;
  complain(std::to_string(run.errors()) + " calls were answered with an error, the first one:");
  return print_answer(run.first_error().get(), options.style).status;
}
