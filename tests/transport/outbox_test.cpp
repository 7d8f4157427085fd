#include "transport/outbox.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/gate.h"
#include "tests/transport/stream_fixture.h"

using namespace transport;

namespace {

using std::chrono::milliseconds;
typedef json_spirit::Value Value;

Outbox::Result put(Outbox& outbox, Outbox::Kind kind, std::string_view text, const Value& id = 1,
                   bool* woken = nullptr) {
  bool wake;
  const Outbox::Result result = outbox.put(kind, id, {}, text, wake);
  if (woken != nullptr) *woken = wake;
  return result;
}

TEST(OutboxTest, WaitersGoOnWhenBytesLeaveAndGiveUpWhenNoneDo) {
  Outbox outbox(1000);
  EXPECT_TRUE(outbox.wait_for_room(0, 0, milliseconds(0)));
  put(outbox, Outbox::NOTICE, "0123456789");
  EXPECT_TRUE(outbox.wait_for_room(0, 10, milliseconds(0)));
  EXPECT_FALSE(outbox.wait_for_room(0, 9, milliseconds(10)));

  std::vector<Output_Piece> taken;
  outbox.take(taken);
  // Bytes leave one by one: together that takes longer than the patience with none.
  Gate waits;
  std::atomic<bool> room{false};
  std::thread waiter([&] {
    waits.arrive();
    room = outbox.wait_for_room(0, 2, milliseconds(1000));
  });
  waits.wait();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 7; ++i) {
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_FALSE(room);
    outbox.sent(1, 0);
  }
  outbox.sent(1, 0);
  waiter.join();
  EXPECT_TRUE(room);
  EXPECT_GT(std::chrono::steady_clock::now() - begin, milliseconds(1000));
}

TEST(OutboxTest, ClosingEndsWaitersAndDropsAll) {
  Outbox outbox(1000);
  outbox.await(1);
  put(outbox, Outbox::NOTICE, "0123456789");
  std::uint64_t stream;
  bool wake;
  outbox.begin("x", nullptr, stream, wake);
  std::atomic<bool> room{true};
  std::thread waiter([&] { room = outbox.wait_for_room(0, 0, gate_patience); });
  outbox.close();
  waiter.join();
  EXPECT_FALSE(room);
  EXPECT_TRUE(outbox.is_closed());
  EXPECT_FALSE(outbox.owes());
  EXPECT_EQ(Outbox::CLOSED, put(outbox, Outbox::ANSWER, "x", 1, &wake));
  EXPECT_FALSE(wake);
  EXPECT_EQ(Outbox::CLOSED, outbox.append(stream, "x", wake));
  EXPECT_EQ(Outbox::CLOSED, outbox.end(stream, "x", wake));
  EXPECT_EQ(Outbox::CLOSED, outbox.begin("x", nullptr, stream, wake));
  std::vector<Output_Piece> batch;
  EXPECT_FALSE(outbox.take(batch));
}

TEST(OutboxTest, NoWakeUpIsLostAmongThreads) {
  constexpr int producers = 4, rounds = 5000;
  Outbox outbox(1u << 30);
  std::atomic<int> woken{0};
  Gate begin(producers);
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      begin.meet();
      for (int i = 0; i < rounds; ++i) {
        bool wake;
        put(outbox, Outbox::NOTICE, std::string(1, static_cast<char>('a' + p)), 1, &wake);
        if (wake) ++woken;
      }
    });
  }
  // Takes only when it was woken, as the loop does.
  std::string all;
  const auto deadline = std::chrono::steady_clock::now() + gate_patience;
  for (int taken = 0; all.size() < producers * rounds;) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << all.size() << " bytes came";
    if (taken == woken) continue;
    ++taken;
    all += drain(outbox);
  }
  for (std::thread& thread : threads) thread.join();
  for (int p = 0; p < producers; ++p) {
    EXPECT_EQ(rounds, std::count(all.begin(), all.end(), 'a' + p));
  }
}

}  // namespace
