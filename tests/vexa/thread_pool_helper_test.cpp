#include "vexa/thread_pool_helper.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"

namespace {

constexpr long joinable = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED;

/// A pool whose enqueues never block, and what its tasks noted, in order.
struct ThreadPoolTest : ::testing::Test {
  void start(size_t threads, const char* name = "test", int io_priority = 0) {
    pool = std::make_unique<Thread_Pool_Helper>(threads, name, joinable,
                                                ACE_DEFAULT_THREAD_PRIORITY, io_priority, &at_once);
    ASSERT_EQ(0, pool->activate());
  }

  /// Occupies one worker until `go_on` opens.
  void occupy(Gate& go_on) {
    auto started = std::make_shared<Gate>();
    ASSERT_GE(pool->putq([started, &go_on] { started->arrive(), go_on.wait(); }, false), 1);
    started->wait();
  }

  int note(const std::string& what, bool front = false) {
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
  std::unique_ptr<Thread_Pool_Helper> pool;
};

TEST_F(ThreadPoolTest, TasksRunInOrderAndFrontOnesFirst) {
  Gate go_on;
  start(1);
  occupy(go_on);
  EXPECT_EQ(1, note("a"));
  EXPECT_EQ(2, note("b"));
  EXPECT_EQ(3, note("c", true));
  EXPECT_EQ(4u, pool->busy());
  go_on.arrive();
  EXPECT_EQ(0, pool->wait(false));
  EXPECT_EQ("cab", noted);
  EXPECT_EQ(0u, pool->busy());
}

TEST_F(ThreadPoolTest, WaitDropsOrRunsWhatIsPendingAndEndsEveryWorker) {
  for (const bool discard : {false, true}) {
    SCOPED_TRACE(discard);
    noted.clear();
    Gate go_on;
    start(3);
    pool->msg_queue()->high_water_mark(2 * sizeof(Thread_Pool_Helper::task_type));
    for (int i = 0; i < 3; ++i) occupy(go_on);
    ASSERT_EQ(1, note("a"));
    ASSERT_EQ(2, note("a"));
    // The queue is full, yet neither the stop marker nor its way back into the queue may block.
    const size_t dropped = discard ? 2 : 0;
    std::thread opener([&] {
      while (pool->busy() != 5 - dropped || pool->msg_queue()->message_count() != 3 - dropped) {
        std::this_thread::yield();
      }
      go_on.arrive();
    });
    EXPECT_EQ(0, pool->wait(discard));
    opener.join();
    EXPECT_EQ(discard ? "" : "aa", noted);
    EXPECT_EQ(0u, pool->thr_count());
    EXPECT_EQ(0u, pool->busy());
    EXPECT_EQ(2 * sizeof(Thread_Pool_Helper::task_type), pool->msg_queue()->high_water_mark());
    EXPECT_TRUE(pool->msg_queue()->is_empty());
    EXPECT_EQ(0, pool->wait(discard));

    EXPECT_EQ(-1, note("b"));
    EXPECT_EQ(ESHUTDOWN, errno);
    EXPECT_TRUE(log.contains(LM_ERROR, "No active worker thread!\n"));
    ASSERT_EQ(0, pool->activate());
    EXPECT_EQ(1, pool->activate());
  }
}

TEST_F(ThreadPoolTest, DestructionDropsAndFreesWhatIsPending) {
  Gate go_on;
  start(1);
  occupy(go_on);
  const auto held = std::make_shared<int>(1);
  ASSERT_EQ(1, pool->putq([held] {}, false));
  ASSERT_EQ(2, note("never"));
  EXPECT_EQ(2, held.use_count());
  pool->clear();
  EXPECT_EQ(1, held.use_count());
  EXPECT_EQ(1u, pool->busy());
  ASSERT_EQ(1, pool->putq([held] {}, false));

  // The worker that is running finds the queue closed, so what waits is never run.
  Thread_Pool_Helper* const dying = pool.release();
  std::thread destroyer([dying] { delete dying; });
  Thread_Pool_Helper::task_type* waiting = nullptr;
  while (dying->msg_queue()->peek_dequeue_head(waiting, &at_once) != -1) std::this_thread::yield();
  go_on.arrive();
  destroyer.join();
  EXPECT_EQ(1, held.use_count());
  EXPECT_EQ("", noted);
}

TEST_F(ThreadPoolTest, AThrowingTaskCostsNoWorker) {
  start(1);
  ASSERT_GE(pool->putq([] { throw std::runtime_error("oops"); }, false), 1);
  ASSERT_GE(pool->putq([] { throw 1; }, false), 1);
  ASSERT_GE(note("a"), 1);
  EXPECT_EQ(0, pool->wait(false));
  EXPECT_EQ("a", noted);
  EXPECT_EQ((std::vector<std::string>{
                "A task of the thread pool 'test' threw an exception: oops\n",
                "A task of the thread pool 'test' threw an exception: unknown exception\n"}),
            log.texts(LM_ERROR));
}

TEST_F(ThreadPoolTest, WorkersAreNamedAndAskForTheirIOPriority) {
  std::string name(64, '\0');
  constexpr int no_such_class = 7 << 13;
  start(1, "a-name-that-is-too-long", no_such_class);
  ASSERT_GE(
      pool->putq([&] { ::pthread_getname_np(::pthread_self(), &name[0], name.size()); }, false), 1);
  EXPECT_EQ(0, pool->wait(false));
  EXPECT_STREQ("a-name-that-is-", name.c_str());
  EXPECT_TRUE(log.contains(LM_WARNING, "Failed to set IO priority: errno=22, Invalid argument\n"));
}

TEST_F(ThreadPoolTest, APoolThatCannotStartAllItsThreadsKeepsNone) {
  pool = std::make_unique<Thread_Pool_Helper>(4, nullptr, joinable, ACE_DEFAULT_THREAD_PRIORITY, 0,
                                              &at_once);
  {
    Failing_Thread_Creation fails(2);
    EXPECT_EQ(-1, pool->activate());
    EXPECT_EQ(EAGAIN, errno);
  }
  EXPECT_EQ(0u, pool->thr_count());
  EXPECT_EQ(-1, note("a"));
  ASSERT_EQ(0, pool->activate());
  EXPECT_EQ(4u, pool->thr_count());
  ASSERT_GE(note("b"), 1);
  EXPECT_EQ(0, pool->wait(false));
  EXPECT_EQ("b", noted);
}

}  // namespace
