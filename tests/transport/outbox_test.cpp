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

TEST(OutboxTest, LetsOneAnswerPassForEachRequest) {
  Outbox outbox(1000);
  EXPECT_EQ(1u, outbox.await(1));
  EXPECT_EQ(2u, outbox.await("1"));
  EXPECT_EQ(3u, outbox.await(1));
  EXPECT_TRUE(outbox.overloaded(1000, 3));
  EXPECT_EQ(Outbox::NOT_AWAITED, put(outbox, Outbox::ANSWER, "x", 2));
  EXPECT_EQ(Outbox::SENT, put(outbox, Outbox::ANSWER, "a", 1));
  EXPECT_EQ(Outbox::SENT, put(outbox, Outbox::ANSWER, "b", "1"));
  EXPECT_EQ(Outbox::NOT_AWAITED, put(outbox, Outbox::ANSWER, "x", "1"));
  EXPECT_FALSE(outbox.overloaded(1000, 3));
  EXPECT_EQ((std::vector<Value>{1}), outbox.awaited());
  std::uint64_t stream;
  bool wake;
  const Value one = 1;
  EXPECT_EQ(Outbox::SENT, outbox.begin("c", &one, stream, wake));
  EXPECT_EQ(Outbox::SENT, outbox.end(stream, "c", wake));
  EXPECT_EQ(Outbox::NOT_AWAITED, outbox.begin("x", &one, stream, wake));
  EXPECT_EQ(Outbox::SENT, put(outbox, Outbox::COMPLAINT, "d", 5)) << "answers no request";
  EXPECT_EQ(0u, outbox.pending());
  EXPECT_TRUE(outbox.owes());
  EXPECT_EQ("abccd", drain(outbox));
  EXPECT_FALSE(outbox.owes());
}

TEST(OutboxTest, RefusesByKindWhenItHoldsTooMuch) {
  const struct {
    Outbox::Kind kind;
    bool refusable;
  } cases[] = {{Outbox::NOTICE, true},
               {Outbox::CALL, true},
               {Outbox::ANSWER, false},
               {Outbox::COMPLAINT, true}};
  const std::string large(101, 'x');
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    Outbox outbox(100);
    for (int i = 0; i < 5; ++i) outbox.await(1);
    EXPECT_EQ(Outbox::SENT, put(outbox, c.kind, large)) << "one message may always be queued";
    std::vector<Output_Piece> batch;
    ASSERT_TRUE(outbox.take(batch));
    const Outbox::Result full = c.refusable ? Outbox::OVERFLOW : Outbox::SENT;
    EXPECT_EQ(full, put(outbox, c.kind, "x")) << "what is taken is still unsent";
    outbox.sent(outbox.unsent(), 0);
    EXPECT_EQ(Outbox::SENT, put(outbox, c.kind, std::string(60, 'x')));
    EXPECT_EQ(Outbox::SENT, put(outbox, c.kind, std::string(40, 'x')));
    EXPECT_EQ(full, put(outbox, c.kind, "x"));
  }
}

TEST(OutboxTest, IsOverloadedByAnswersAlone) {
  Outbox outbox(1000);
  const Value one = 1;
  std::uint64_t stream;
  bool wake;
  put(outbox, Outbox::CALL, std::string(90, 'c'));
  put(outbox, Outbox::NOTICE, std::string(90, 'n'));
  outbox.begin(std::string(90, 's'), nullptr, stream, wake);
  outbox.end(stream, "s", wake);
  EXPECT_FALSE(outbox.overloaded(0, 1));
  for (int i = 0; i < 3; ++i) outbox.await(1);
  put(outbox, Outbox::ANSWER, std::string(10, 'a'));
  outbox.begin(std::string(10, 'b'), &one, stream, wake);
  outbox.append(stream, std::string(10, 'b'), wake);
  std::vector<Output_Piece> batch;
  EXPECT_TRUE(outbox.take(batch));
  EXPECT_TRUE(outbox.overloaded(29, 9)) << "what is taken is still unsent";
  EXPECT_FALSE(outbox.overloaded(30, 9));
  std::uint64_t unsent;
  outbox.begin(std::string(10, 'd'), &one, unsent, wake);
  EXPECT_TRUE(outbox.overloaded(39, 9));
  EXPECT_TRUE(outbox.replace(unsent, "dd", wake));
  EXPECT_TRUE(outbox.overloaded(31, 9));
  outbox.end(stream, "", wake);
  drain(outbox);
  EXPECT_FALSE(outbox.overloaded(30, 9));
}

TEST(OutboxTest, WakesTheLoopOnceUntilItHasFoundNothing) {
  Outbox outbox(1000);
  bool wake;
  std::vector<Output_Piece> batch;
  const auto wakes = [&] {
    put(outbox, Outbox::NOTICE, "x", 1, &wake);
    return wake;
  };
  EXPECT_TRUE(wakes());
  EXPECT_FALSE(wakes());
  EXPECT_TRUE(outbox.take(batch));
  EXPECT_FALSE(wakes()) << "the loop looks again";
  EXPECT_TRUE(outbox.take(batch));
  EXPECT_FALSE(outbox.take(batch));
  EXPECT_TRUE(wakes());
  EXPECT_TRUE(outbox.take(batch));
  EXPECT_FALSE(outbox.take(batch));
  outbox.attend();
  EXPECT_FALSE(wakes());
  EXPECT_TRUE(outbox.take(batch));
  EXPECT_FALSE(outbox.take(batch));
  std::uint64_t stream;
  outbox.begin("", nullptr, stream, wake);
  EXPECT_TRUE(wake);
  EXPECT_FALSE(outbox.take(batch)) << "an open message without bytes";
  outbox.append(stream, "x", wake);
  EXPECT_TRUE(wake);
  EXPECT_TRUE(outbox.take(batch));
  EXPECT_FALSE(outbox.take(batch));
  outbox.end(stream, "", wake);
  EXPECT_TRUE(wake) << "what stands behind may leave now";
}

TEST(OutboxTest, NothingOvertakesAnOpenMessage) {
  Outbox outbox(1000);
  std::uint64_t first, second;
  bool wake;
  put(outbox, Outbox::NOTICE, "[");
  outbox.begin("a", nullptr, first, wake);
  put(outbox, Outbox::NOTICE, "]");
  outbox.begin("A", nullptr, second, wake);
  EXPECT_EQ("[a", drain(outbox));
  EXPECT_EQ(Outbox::SENT, outbox.end(second, "B", wake));
  put(outbox, Outbox::NOTICE, ".");
  outbox.append(first, "b", wake);
  EXPECT_EQ("b", drain(outbox));
  EXPECT_TRUE(outbox.owes());
  EXPECT_EQ(4u, outbox.unsent());
  outbox.end(first, "c", wake);
  EXPECT_EQ("c]AB.", drain(outbox));
  EXPECT_EQ(Outbox::CLOSED, outbox.append(first, "x", wake)) << "it has ended";
  EXPECT_FALSE(outbox.owes());
}

TEST(OutboxTest, ASourceThatIsNotInTheLineYetWaitsForIt) {
  Outbox outbox(1000);
  const std::shared_ptr<Fake_Wire> first = std::make_shared<Fake_Wire>();
  const std::shared_ptr<Fake_Wire> second = std::make_shared<Fake_Wire>();
  EXPECT_TRUE(outbox.may_grow(0, 0, first));
  put(outbox, Outbox::NOTICE, "0123456789");
  for (const auto& wire : {first, first, second}) EXPECT_FALSE(outbox.may_grow(0, 9, wire));
  EXPECT_TRUE(outbox.may_grow(0, 10, first));
  EXPECT_EQ(0, first->resumes);
  drain(outbox);
  EXPECT_EQ(1, first->resumes);
  EXPECT_EQ(1, second->resumes);
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
    room = outbox.wait_for_room(0, 2, milliseconds(2000));
  });
  waits.wait();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 7; ++i) {
    std::this_thread::sleep_for(milliseconds(400));
    EXPECT_FALSE(room);
    outbox.sent(1, 0);
  }
  outbox.sent(1, 0);
  waiter.join();
  EXPECT_TRUE(room);
  EXPECT_GT(std::chrono::steady_clock::now() - begin, milliseconds(2000));
}

TEST(OutboxTest, AnOpenMessageDoesNotWaitForWhatStandsBehindIt) {
  Outbox outbox(1000);
  std::uint64_t stream;
  bool wake;
  outbox.begin("12345", nullptr, stream, wake);
  put(outbox, Outbox::NOTICE, std::string(100, 'x'));
  EXPECT_TRUE(outbox.wait_for_room(stream, 5, milliseconds(0)));
  EXPECT_FALSE(outbox.wait_for_room(stream, 4, milliseconds(0)));
  EXPECT_FALSE(outbox.wait_for_room(0, 5, milliseconds(0)));
  EXPECT_EQ("12345", drain(outbox));
  EXPECT_TRUE(outbox.wait_for_room(stream, 0, milliseconds(0)));
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
