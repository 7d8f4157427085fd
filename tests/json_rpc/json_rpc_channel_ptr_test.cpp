#include "json_rpc/json_rpc_channel_ptr.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/fake_channel.h"

namespace {

JSON_RPC_Channel* make_channel(bool& destroyed) {
  Fake_Channel* const channel = new Fake_Channel;
  channel->destroyed = &destroyed;
  return channel;
}

TEST(ChannelPtrTest, TheLastStrongHandleEndsTheChannelForAll) {
  bool destroyed = false, other_destroyed = false;
  JSON_RPC_Channel_ptr weak(make_channel(destroyed));  // before there is any strong one
  const JSON_RPC_Channel_ptr copy(weak);
  JSON_RPC_Channel_var first = weak.strong();
  JSON_RPC_Channel_var second(first);
  EXPECT_TRUE(weak == first && copy == weak && second == first && weak != JSON_RPC_Channel_ptr());
  first = JSON_RPC_Channel_var(make_channel(other_destroyed));
  EXPECT_TRUE(weak != first && !destroyed);
  second.reset();
  EXPECT_TRUE(destroyed && weak.null() && copy.strong().null());
  EXPECT_TRUE(weak == copy && weak == JSON_RPC_Channel_ptr() && weak == second && weak != first);
  weak = first;
  first = copy;
  EXPECT_TRUE(other_destroyed && weak.null() && first.null());
}

TEST(ChannelPtrTest, AChannelGoesOnceWhoeverLetsGoLast) {
  for (int round = 0; round < 100; ++round) {
    bool destroyed = false;
    JSON_RPC_Channel_var owner(make_channel(destroyed));
    const auto use = [weak = JSON_RPC_Channel_ptr(owner)] {
      for (;;) {
        const JSON_RPC_Channel_var alive(weak);
        const JSON_RPC_Channel_var copy(alive);
        if (copy.null()) return;
        copy->type(copy->type() + 1);  // is there as long as the handle is
      }
    };
    std::thread one(use), two(use);
    owner.reset();
    one.join();
    two.join();
    EXPECT_TRUE(destroyed);
  }
}

}  // namespace
