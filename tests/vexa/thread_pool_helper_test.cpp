#include "vexa/thread_pool_helper.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tests/support/gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"

namespace {

/// A pool whose enqueues never block, and what its tasks noted, in order.
struct ThreadPoolTest : ::testing::Test {
  std::unique_ptr<Thread_Pool_Helper> make(size_t threads, const char* name = nullptr,
                                           int io_priority = 0) {
    return std::make_unique<Thread_Pool_Helper>(threads, name,
                                                THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED,
                                                ACE_DEFAULT_THREAD_PRIORITY, io_priority, &at_once);
  }

  /// Starts the workers and occupies each until `go_on` opens.
  void start_busy(int threads) {
    pool = make(threads);
    ASSERT_EQ(0, pool->activate());
    Gate started(threads);
    for (int i = 0; i < threads; ++i) {
      ASSERT_GE(pool->putq([this, &started] { started.arrive(), go_on.wait(); }, false), 1);
    }
    started.wait();
  }

  int note(const char* what, bool front = false) {
    return pool->putq(
        [this, what] {
          const std::lock_guard<std::mutex> guard(lock);
          noted += what;
        },
        front);
  }

  Log_Capture log;
  ACE_Time_Value at_once{0, 0};
  std::mutex lock;
  std::string noted;
  Gate go_on;
  std::unique_ptr<Thread_Pool_Helper> pool;
};

struct ThreadPoolWaitTest : ThreadPoolTest, ::testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(Discarding, ThreadPoolWaitTest, ::testing::Bool());

TEST_P(ThreadPoolWaitTest, WhatIsPendingRunsInOrderOrIsDroppedAndEveryWorkerEnds) {
  const bool discard = GetParam();
  const size_t mark = 3 * sizeof(Thread_Pool_Helper::task_type);
  start_busy(3);
  pool->msg_queue()->high_water_mark(mark);
  EXPECT_EQ(1, note("a"));
  EXPECT_EQ(2, note("b"));
  EXPECT_EQ(3, note("c", true));
  EXPECT_EQ(6u, pool->busy());
  // The queue is full, yet neither the stop marker nor its way back into the queue may block.
  const size_t left = discard ? 0 : 3;
  std::thread opener([&] {
    while (pool->busy() != 3 + left || pool->msg_queue()->message_count() != 1 + left) {
      std::this_thread::yield();
    }
    go_on.arrive();
  });
  EXPECT_EQ(0, pool->wait(discard));
  opener.join();
  EXPECT_EQ(left, noted.size());
  EXPECT_EQ(0u, pool->thr_count());
  EXPECT_EQ(0u, pool->busy());
  EXPECT_EQ(mark, pool->msg_queue()->high_water_mark());
  EXPECT_TRUE(pool->msg_queue()->is_empty());
  EXPECT_EQ(0, pool->wait(discard));
  EXPECT_EQ(-1, note("d"));
  EXPECT_EQ(ESHUTDOWN, errno);
  EXPECT_TRUE(log.contains(LM_ERROR, "No active worker thread!\n"));
  {
    Failing_Thread_Creation fails(1);
    EXPECT_EQ(-1, pool->activate());
    EXPECT_EQ(EAGAIN, errno);
  }
  EXPECT_EQ(0u, pool->thr_count()) << "some could not be started, so none is left";
  EXPECT_EQ(0, pool->activate());
  EXPECT_EQ(1, pool->activate());
  EXPECT_EQ(3u, pool->thr_count());
}

TEST_F(ThreadPoolTest, AFrontTaskRunsFirstAndAThrowingOneCostsNoWorker) {
  constexpr int no_such_class = 7 << 13;
  pool = make(1, "a-name-that-is-too-long", no_such_class);
  ASSERT_EQ(0, pool->activate());
  std::string name(64, '\0');
  ASSERT_GE(pool->putq([this] { go_on.wait(); }, false), 1);
  ASSERT_GE(pool->putq([] { throw std::runtime_error("oops"); }, false), 1);
  ASSERT_GE(note("b"), 1);
  ASSERT_GE(note("a", true), 1);
  ASSERT_GE(
      pool->putq([&] { ::pthread_getname_np(::pthread_self(), &name[0], name.size()); }, false), 1);
  go_on.arrive();
  EXPECT_EQ(0, pool->wait(false));
  EXPECT_EQ("ab", noted);
  EXPECT_STREQ("a-name-that-is-", name.c_str());
  EXPECT_EQ(1u, log.count("Failed to set IO priority: errno=22, Invalid argument\n"));
  EXPECT_EQ(1u, log.count("threw an exception: oops\n"));
}

}  // namespace
