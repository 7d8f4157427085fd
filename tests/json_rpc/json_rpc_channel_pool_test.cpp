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

TEST_F(ChannelPoolTest, TellsTheDeadFromTheLivingAndTakesNobodyTwice) {
  EXPECT_TRUE(pool_.channel().null());
  JSON_RPC_Channel_var channel(new Reborn_Channel);
  const JSON_RPC_Channel_ptr gone(channel);
  EXPECT_EQ(0, pool_.insert(channel));
  EXPECT_EQ(-1, pool_.insert(channel));
  channel = JSON_RPC_Channel_var();
  EXPECT_EQ(-1, pool_.insert(gone));

  channel = JSON_RPC_Channel_var(new Reborn_Channel);  // where the one that went was
  const JSON_RPC_Channel_var stays = make_fake_channel();
  EXPECT_EQ(0, pool_.insert(channel));
  EXPECT_EQ(0, pool_.remove(channel));
  EXPECT_EQ(0, pool_.insert(stays));
  channel = make_fake_channel();
  EXPECT_EQ(0, pool_.insert(channel));
  channel = JSON_RPC_Channel_var();
  EXPECT_EQ(0, pool_.remove(gone)) << "takes both that are gone";
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
