// A loop that has no memory goes on.

#include <gtest/gtest.h>

#include <boost/asio/post.hpp>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "tests/faults/failing_memory.h"
#include "transport/loop.h"

namespace {

using transport::Loop;

/// Counts who has been flushed.
struct Flushed {
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t count = 0;  // guarded by mutex
};

struct Member final : transport::Loop_Member {
  explicit Member(Flushed& flushed) : flushed(flushed) {}
  void tick(transport::Loop_Time) override {}
  void loop_ended() override {}
  void flush() override {
    const std::lock_guard<std::mutex> guard(flushed.mutex);
    ++flushed.count;
    flushed.changed.notify_one();
  }
  Flushed& flushed;
};

TEST(LoopMemoryTest, WhoIsToBeFlushedIsFlushed) {
  Flushed flushed;
  std::vector<std::shared_ptr<Member>> members;
  for (int i = 0; i < 300; ++i) members.push_back(std::make_shared<Member>(flushed));
  Loop loop(std::chrono::hours(1));
  loop.start();
  boost::asio::post(loop.context(),
                    [] { Failing_Memory::starve_thread(Failing_Memory::THAT_AND_ALL_AFTER); });
  for (const auto& member : members) loop.flush_soon(member);
  {
    std::unique_lock<std::mutex> guard(flushed.mutex);
    EXPECT_TRUE(flushed.changed.wait_for(guard, std::chrono::seconds(10),
                                         [&] { return flushed.count == members.size(); }));
  }
  loop.stop();
}

}  // namespace
