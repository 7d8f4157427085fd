#include "json_rpc/json_rpc_channel_pool.h"

#include <gtest/gtest.h>

#include <ctime>
#include <set>
#include <vector>

#include "tests/support/json_rpc_fixture.h"

namespace {

class ChannelPoolTest : public JSON_RPC_Fixture {
protected:
  JSON_RPC_Channel_Pool pool_;
};

TEST_F(ChannelPoolTest, RefusesWhatIsGoneOrThereAlready) {
  EXPECT_TRUE(pool_.channel().null());
  EXPECT_EQ(-1, pool_.insert(JSON_RPC_Channel::none()));
  JSON_RPC_Channel_var short_lived = make_fake_channel();
  const JSON_RPC_Channel_ptr gone(short_lived);
  short_lived = JSON_RPC_Channel::none();
  EXPECT_EQ(-1, pool_.insert(gone));
  EXPECT_TRUE(pool_.channel().null());
  const JSON_RPC_Channel_var a = make_fake_channel();
  EXPECT_EQ(0, pool_.insert(a));
  EXPECT_EQ(-1, pool_.insert(a));
  EXPECT_TRUE(pool_.channel() == a);
  EXPECT_EQ(0, pool_.remove(a));
  EXPECT_TRUE(pool_.channel().null()) << "one removal, so it was there once";
}

TEST_F(ChannelPoolTest, ChannelsInTheMemoryOfOthersAreNotTakenForThem) {
  JSON_RPC_Channel_var channel(new Reborn_Channel);
  EXPECT_EQ(0, pool_.insert(channel));
  channel = JSON_RPC_Channel::none();
  channel = JSON_RPC_Channel_var(new Reborn_Channel);
  EXPECT_EQ(0, pool_.insert(channel));
  EXPECT_EQ(0, pool_.remove(channel));
  EXPECT_EQ(0, pool_.insert(channel)) << "it went, and what is gone stayed";
}

TEST_F(ChannelPoolTest, RemovingOneDeadChannelSweepsThemAll) {
  const JSON_RPC_Channel_var stays = make_fake_channel();
  JSON_RPC_Channel_var dead[3];
  pool_.insert(stays);
  for (JSON_RPC_Channel_var& channel : dead) {
    channel = make_fake_channel();
    pool_.insert(channel);
  }
  const JSON_RPC_Channel_ptr one(dead[0]);
  for (JSON_RPC_Channel_var& channel : dead) channel = JSON_RPC_Channel::none();
  const JSON_RPC_Channel_var stranger = make_fake_channel();
  EXPECT_EQ(0, pool_.remove(stranger)) << "of live channels only the one that is named goes";
  EXPECT_EQ(0, pool_.remove(one));
  EXPECT_TRUE(pool_.channel() == stays);
  EXPECT_EQ(0, pool_.remove(stays));
  EXPECT_TRUE(pool_.channel().null());
}

TEST_F(ChannelPoolTest, OneSecondGivesOneMember) {
  std::vector<JSON_RPC_Channel_var> channels;
  for (int i = 0; i < 5; ++i) pool_.insert(channels.emplace_back(make_fake_channel()));
  std::set<const JSON_RPC_Channel*> chosen;
  std::time_t second;
  do {  // again when the clock moved on in between
    second = std::time(nullptr);
    chosen.clear();
    for (int i = 0; i < 20; ++i) chosen.insert(pool_.channel().unsafe_get());
  } while (second != std::time(nullptr));
  EXPECT_EQ(1u, chosen.size());
  EXPECT_EQ(0u, chosen.count(nullptr));
}

}  // namespace
