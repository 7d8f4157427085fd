#include "json_rpc/json_rpc_notify_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "json_rpc/json_rpc_fan_out.h"
#include "tests/support/json_rpc_fixture.h"

namespace {

class NotifyManagerTest : public JSON_RPC_Fixture {
protected:
  /// A channel that notes its name in order_ at every delivery.
  JSON_RPC_Channel_var named(const std::string& name) {
    const JSON_RPC_Channel_var channel = make_fake_channel();
    fake(channel).on_send = [this, name](const JSON_RPC_Object_var&) { order_ += name; };
    return channel;
  }

  std::string publish(const std::string& subject) {
    order_.clear();
    EXPECT_EQ(0, manager_.notify(subject, make_notification(subject)));
    return order_;
  }

  JSON_RPC_Notify_Manager manager_;
  std::string order_;
};

TEST_F(NotifyManagerTest, DeliversToSubjectThenWildcardThenDefault) {
  EXPECT_EQ("", publish("x"));
  const JSON_RPC_Channel_var a = named("A"), b = named("B"), c = named("C");
  JSON_RPC_Channel_var d = named("D");
  Global_JSON_RPC_Channel::instance(d);
  manager_.subscribe(b, {"*"});
  manager_.subscribe(c, {"x", "z"});
  manager_.subscribe(a, {"x"});
  EXPECT_EQ("CABD", publish("x"));
  EXPECT_EQ("BD", publish("y"));
  EXPECT_EQ("BBD", publish("*"));
  fake(c).send_result = -1;
  EXPECT_EQ("CABD", publish("x")) << "a failing send stops nothing";
  fake(b).on_send = [](const JSON_RPC_Object_var&) { throw 1; };
  EXPECT_EQ("CAD", publish("x")) << "nor does one that throws";
  EXPECT_EQ(R"({"jsonrpc":"2.0","method":"x"})", fake(d).texts().back());
  d = JSON_RPC_Channel_var();
  EXPECT_EQ("", publish("y")) << "nobody keeps the default channel alive";
}

TEST_F(NotifyManagerTest, EachSubscriptionIsADeliveryAndEndsWithItsKind) {
  const JSON_RPC_Channel_var a = named("A"), b = named("B");
  manager_.subscribe(a, {"x", "x", "y", "*"});
  manager_.subscribe(b, {"x", "y"});
  EXPECT_EQ("AABA", publish("x"));
  EXPECT_EQ(0, manager_.unsubscribe(a, {"x", "unknown"}));
  EXPECT_EQ("BA", publish("x"));
  EXPECT_EQ("ABA", publish("y"));
  EXPECT_EQ(0, manager_.unsubscribe(std::string("y")));
  EXPECT_EQ("A", publish("y"));
  EXPECT_TRUE(manager_.subscribed(a));
  EXPECT_EQ(0, manager_.unsubscribe(a));
  EXPECT_FALSE(manager_.subscribed(a));
  EXPECT_TRUE(manager_.subscribed(b));
  EXPECT_EQ("B", publish("x"));
  manager_.subscribe(a, {"w", "x"});
  EXPECT_EQ(0, manager_.unsubscribe(JSON_RPC_Notify_Manager::subjects_type{"y", "x"}));
  EXPECT_FALSE(manager_.subscribed(b));
  EXPECT_TRUE(manager_.subscribed(a));
  EXPECT_EQ("A", publish("w"));
}

TEST_F(NotifyManagerTest, OneDeadUnsubscriberSweepsAllThatAreGone) {
  const JSON_RPC_Channel_var live = named("L");
  JSON_RPC_Channel_var first(new Reborn_Channel), second = named("2");
  const JSON_RPC_Channel_ptr gone(first);
  manager_.subscribe(live, {"x"});
  manager_.subscribe(first, {"x", "y"});
  manager_.subscribe(second, {"x", "*"});
  first = JSON_RPC_Channel_var();
  EXPECT_EQ("L22", publish("x"));
  EXPECT_FALSE(manager_.subscribed(gone));

  // While its entries are there, a new channel in its place has none of them, but its own.
  first = JSON_RPC_Channel_var(new Reborn_Channel);
  EXPECT_FALSE(manager_.subscribed(first));
  manager_.subscribe(first, {"x", "z"});
  EXPECT_EQ(0, manager_.unsubscribe(first));
  EXPECT_EQ("L22", publish("x"));
  EXPECT_EQ(0u, fake(first).count());
  second = JSON_RPC_Channel_var();
  EXPECT_EQ(5u, manager_.size());
  EXPECT_EQ(0, manager_.unsubscribe(gone, {"none"}));
  EXPECT_EQ(1u, manager_.size());
  EXPECT_EQ("L", publish("x"));
  EXPECT_TRUE(manager_.subscribed(live));
}

TEST_F(NotifyManagerTest, AFanOutKeepsWhatWasPreparedAndNests) {
  const JSON_RPC_Channel_var outer = make_fake_channel(), inner = named("I"),
                             last = make_fake_channel();
  manager_.subscribe(outer, {"outer"});
  manager_.subscribe(inner, {"inner"});
  Global_JSON_RPC_Channel::instance(last);
  fake(outer).on_send = [&](const JSON_RPC_Object_var& obj) {
    JSON_RPC_Fan_Out* const fan_out = JSON_RPC_Fan_Out::current();
    ASSERT_TRUE(fan_out != nullptr && fan_out->object() == obj.get());
    fan_out->prepared = std::make_shared<const int>(1);
    EXPECT_EQ(0, manager_.notify("inner", make_notification("inner")));
    EXPECT_EQ(fan_out, JSON_RPC_Fan_Out::current());
  };
  fake(last).on_send = [this](const JSON_RPC_Object_var&) {
    order_ += JSON_RPC_Fan_Out::current()->prepared == nullptr ? "-" : "+";
  };
  EXPECT_EQ("I-+", publish("outer"));
  EXPECT_EQ(nullptr, JSON_RPC_Fan_Out::current());
}

TEST_F(NotifyManagerTest, ChannelsComeAndGoWhileOthersPublish) {
  constexpr int rounds = 300, publishers = 2, hosts = 3;
  JSON_RPC_Notify_Manager& manager = *JSON_RPC_Notify_Manager::instance();
  JSON_RPC_Channel_Map map;
  const JSON_RPC_Channel_var steady = make_fake_channel(), witness = make_fake_channel();
  manager.subscribe(steady, {"x"});
  manager.subscribe(witness, {"channel.registered", "channel.unregistered"});
  Gate start(publishers + hosts);
  std::vector<std::thread> threads;
  for (int i = 0; i < publishers; ++i) {
    threads.emplace_back([&] {
      if (!start.meet()) return;
      for (int n = 0; n < rounds; ++n) manager.notify("x", make_notification("x"));
    });
  }
  for (int i = 0; i < hosts; ++i) {
    threads.emplace_back([&, i] {
      if (!start.meet()) return;
      for (int n = 0; n < rounds; ++n) {
        const JSON_RPC_Channel_var channel = make_fake_channel(i, std::to_string(n));
        EXPECT_EQ(0, map.insert(channel));
        EXPECT_EQ(0, manager.subscribe(channel, {"x", "*", "y"}));
        EXPECT_TRUE(manager.subscribed(channel));
        if (n % 3 == 0) continue;  // vanishes without a word, often in the middle of a delivery
        JSON_RPC_Channel_Map::Channel_Infos infos;
        EXPECT_EQ(0, n % 3 == 1 ? manager.unsubscribe(channel)
                                : manager.unsubscribe(channel, {"*", "x", "y"}));
        EXPECT_FALSE(manager.subscribed(channel));
        EXPECT_EQ(0, n % 3 == 1 ? map.remove(channel) : map.channel_infos(infos, i));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  JSON_RPC_Channel_Map::Channel_Infos left;
  EXPECT_EQ(0, map.channel_infos(left, 0));
  EXPECT_EQ(0u, left.size());
  EXPECT_EQ(std::size_t(rounds * publishers), fake(steady).count());
  EXPECT_EQ(std::size_t(2 * hosts * rounds), fake(witness).count()) << "each came and went once";
}

}  // namespace
