#include "transport/metrics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "tests/support/gate.h"

using namespace transport;

namespace {

using namespace std::chrono_literals;

TEST(CounterRowsTest, LoseNothingWhenThreadsComeAndGo) {
  constexpr int generations = 20;
  constexpr int threads = 4;
  constexpr std::uint64_t each = 2000;
  Counter_Rows rows(9);
  std::atomic<bool> done{false};
  std::thread reader([&] {
    std::uint64_t last = 0;
    while (!done) {
      const std::uint64_t now = rows.sums()[8];
      EXPECT_GE(now, last);
      last = now;
    }
  });
  for (int i = 0; i < generations; ++i) {
    Gate start(threads);
    std::vector<std::thread> counting;
    for (int t = 0; t < threads; ++t) {
      counting.emplace_back([&] {
        if (!start.meet()) return;
        for (std::uint64_t n = 0; n < each; ++n) Counter_Rows::add(rows.row()[8], 1);
      });
    }
    for (std::thread& thread : counting) thread.join();
  }
  done = true;
  reader.join();
  EXPECT_EQ((std::vector<std::uint64_t>{0, 0, 0, 0, 0, 0, 0, 0, generations * threads * each}),
            rows.sums());
}

TEST(CounterRowsTest, PassTheRowOfAThreadThatEndedToTheNext) {
  Counter_Rows rows(1);
  const Counter_Rows::Counter* first = nullptr;
  std::thread([&] { first = rows.row(); }).join();
  std::thread([&] { EXPECT_EQ(first, rows.row()); }).join();
  const Counter_Rows::Counter* const mine = rows.row();
  std::thread([&] { EXPECT_NE(mine, rows.row()); }).join();
}

TEST(CounterRowsTest, AreToldApartAlsoInTheSamePlace) {
  Counter_Rows other(1);
  std::optional<Counter_Rows> rows;
  for (std::uint64_t n = 1; n <= 3; ++n) {
    rows.emplace(1);
    for (std::uint64_t i = 0; i < n; ++i) {
      Counter_Rows::add(rows->row()[0], 1);
      Counter_Rows::add(other.row()[0], 10);
    }
    EXPECT_EQ(n, rows->sums()[0]);
    rows.reset();
  }
  EXPECT_EQ(60u, other.sums()[0]);
}

/// A thread_local object that counts when it goes: after the thread's rows, if it was there first.
struct Last_Words {
  Counter_Rows* rows = nullptr;
  ~Last_Words() {
    if (rows != nullptr) Counter_Rows::add(rows->row()[0], 1);
  }
};

TEST(CounterRowsTest, HarmNobodyByWhatAThreadCountsAtItsVeryEnd) {
  Counter_Rows rows(1);
  std::thread([&] {
    thread_local Last_Words last_words;
    last_words.rows = &rows;
    Counter_Rows::add(rows.row()[0], 1);
  }).join();
  EXPECT_EQ(1u, rows.sums()[0]);
}

TEST(MetricsTest, SortCodesAndDurations) {
  for (std::size_t i = 1; i < Metrics::OTHER_CODE; ++i) {
    EXPECT_EQ(i, Metrics::code_index(Metrics::code_of(i)));
  }
  for (const int code : {1, -1, -31999, -32100, -32599, -32604, -32699, -32701}) {
    EXPECT_EQ(Metrics::OTHER_CODE, Metrics::code_index(code)) << code;
  }
  const struct {
    std::chrono::nanoseconds duration;
    std::size_t interval;
  } cases[] = {{-1s, 0}, {0s, 0},   {100us, 0},      {100us + 1ns, 1},
               {1ms, 3}, {10s, 15}, {10s + 1ns, 16}, {1000h, 16}};
  for (const auto& c : cases) {
    Metrics metrics;
    metrics.answered(0, 0, c.duration);
    const Metrics::Sums sums(metrics);
    for (std::size_t i = 0; i <= Metrics::BOUNDS; ++i) {
      EXPECT_EQ(i == c.interval ? 1u : 0u, sums.within(0, i)) << c.duration.count() << ' ' << i;
    }
    EXPECT_EQ(std::max(0ns, c.duration), sums.time(0));
    EXPECT_EQ(0u, sums.errors(0));
  }
}

}  // namespace
