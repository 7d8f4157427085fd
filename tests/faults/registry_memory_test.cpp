// The tables of the process when memory fails: all or nothing, no lock left held, good afterwards.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "json_rpc/json_rpc_forward_map.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;

namespace {

const std::string long_text = "a text that is too long to be kept in place, by far";

/// Counts what it is sent; sending costs no memory.
class Counting_Channel final : public Fake_Channel {
public:
  int send(JSON_RPC_Object_var) override { return ++sent, 0; }
  int sent = 0;
};

struct Silent_Handler final : JSON_RPC_Handler {
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
};

/// insert(table) gives 0, or fails with ENOMEM and then the table is as if it had not been called,
/// which has(table) tells.
template <typename Table, typename Insert, typename Has>
void expect_all_or_nothing(Insert insert, Has has) {
  at_every_allocation([&](Failing_Memory& memory) {
    Table table;
    int result = -2;
    int error = 0;
    memory([&] {
      result = insert(table);
      error = errno;
    });
    EXPECT_TRUE(result == 0 || (memory.hit() && error == ENOMEM)) << error;
    EXPECT_EQ(result == 0, has(table));
    if (result != 0) {
      EXPECT_EQ(0, insert(table)) << "the next time";
    }
  });
}

TEST(RegistryMemoryTest, TablesTakeAllOrNothing) {
  const JSON_RPC_Channel_var channel = make_fake_channel(1, long_text);
  const JSON_RPC_Handler_var handler(new Silent_Handler);
  Silent_Handler method;
  const Value id(long_text);
  const std::vector<std::string> subjects{"a", long_text, "*"};
  expect_all_or_nothing<JSON_RPC_Response_Map>([&](auto& map) { return map.insert(id, handler); },
                                               [&](auto& map) { return map.contains(long_text); });
  expect_all_or_nothing<JSON_RPC_Channel_Pool>([&](auto& pool) { return pool.insert(channel); },
                                               [&](auto& pool) { return !pool.channel().null(); });
  expect_all_or_nothing<JSON_RPC_Forward_Map>(
      [&](auto& map) { return map.put(id, channel) > 0 ? 0 : -1; },
      [&](auto& map) {
        JSON_RPC_Forward_Map::data_type data;
        const bool found = map.get(1, data) == 0;
        if (found) map.put(id, channel);  // as it was
        return found;
      });
  expect_all_or_nothing<JSON_RPC_Notify_Manager>(
      [&](auto& subscriptions) { return subscriptions.subscribe(channel, subjects); },
      [&](auto& subscriptions) { return subscriptions.size() == subjects.size(); });
  expect_all_or_nothing<JSON_RPC_Request_Map>(
      [&](auto& map) { return map.insert(long_text, long_text, &method, [](void*) {}); },
      [&](auto& map) { return map.find(long_text) == &method; });
}

class DispatchMemoryTest : public ::testing::Test {
protected:
  ~DispatchMemoryTest() override {
    JSON_RPC_Notify_Manager::close_instance();
    JSON_RPC_Dispatcher::close_instance();
    JSON_RPC_Request_Map::close_instance();
  }
  /// Made before memory fails, as the service does.
  JSON_RPC_Notify_Manager* const notify_ = JSON_RPC_Notify_Manager::instance();
  JSON_RPC_Dispatcher* const dispatcher_ = JSON_RPC_Dispatcher::instance();
  JSON_RPC_Request_Map* const methods_ = JSON_RPC_Request_Map::instance();
};

TEST_F(DispatchMemoryTest, AChannelIsListedUnderItsOwnIdOrNotAtAllAndAlwaysUnlisted) {
  at_every_allocation([this](Failing_Memory& memory) {
    JSON_RPC_Channel_Map map;
    const JSON_RPC_Channel_var channel = make_fake_channel(1, long_text);
    const JSON_RPC_Channel_var other = make_fake_channel(1, "");
    const JSON_RPC_Channel_var subscriber(new Counting_Channel);
    ASSERT_EQ(0, notify_->subscribe(subscriber, {"*"}) + map.insert(other));
    ASSERT_EQ(0, notify_->subscribe(channel, {long_text, "*"}));
    int inserted = -1;
    memory([&] {
      inserted = map.insert(channel);
      if (inserted != 0) map.insert(channel);
      EXPECT_EQ(0, notify_->unsubscribe(channel));
      EXPECT_EQ(0, map.remove(channel));
    });
    EXPECT_TRUE(inserted == 0 || memory.hit());
    EXPECT_TRUE(map.find(1, long_text).null());
    EXPECT_TRUE(map.find(1, "") == other) << "nobody else's place is taken";
    EXPECT_EQ(0, map.insert(channel));
    EXPECT_TRUE(map.find(1, long_text) == channel);
    notify_->unsubscribe(subscriber);
    EXPECT_EQ(0u, notify_->size());
  });
}

TEST_F(DispatchMemoryTest, FanningOutSkipsWhomItCannotReachAndHoldsNoLock) {
  at_every_allocation([this](Failing_Memory& memory) {
    JSON_RPC_Channel_Map map;
    Counting_Channel* const counting = new Counting_Channel;
    const JSON_RPC_Channel_var channel(counting);
    channel->id(long_text);
    ASSERT_EQ(0, map.insert(channel) + notify_->subscribe(channel, {long_text}));
    {
      const JSON_RPC_Channel_var going = make_fake_channel(0, "going");
      ASSERT_EQ(0, map.insert(going) + notify_->subscribe(going, {long_text}));
    }
    const JSON_RPC_Object_var event = make_notification(long_text);
    JSON_RPC_Channel_Map::Channel_Infos infos;
    memory([&] {
      dispatcher_->dispatch(channel, event);
      map.notify(event);
      map.notify(0, long_text, event);
      map.channel_infos(infos, 0);
    });
    EXPECT_TRUE(counting->sent == 3 || (memory.hit() && counting->sent < 3));
    counting->sent = 0;
    EXPECT_EQ(0, notify_->notify(long_text, event));
    EXPECT_EQ(0, map.notify(event));
    EXPECT_EQ(2, counting->sent);
    EXPECT_EQ(0, notify_->unsubscribe(long_text) + map.remove(channel));
  });
}

/// Answers nothing; what the dispatcher does around a call can fail all the same.
TEST_F(DispatchMemoryTest, DispatchingLetsNoExceptionOut) {
  const Log_Priorities all(LM_DEBUG | LM_INFO | LM_WARNING | LM_ERROR);
  methods_->insert(long_text, "", new Silent_Handler, nullptr);
  for (const bool known : {true, false}) {
    at_every_allocation([&](Failing_Memory& memory) {
      Counting_Channel* const counting = new Counting_Channel;
      const JSON_RPC_Channel_var channel(counting);
      channel->id(long_text);
      const JSON_RPC_Object_var call =
          make_request(known ? long_text : "unknown " + long_text, long_text);
      int result = -2;
      memory([&] { result = dispatcher_->dispatch(channel, call); });
      EXPECT_TRUE(result == 0 || (!known && memory.hit()));
      EXPECT_EQ(!known && result == 0 ? 1 : 0, counting->sent);
      EXPECT_EQ(0, dispatcher_->dispatch(channel, call));
    });
  }
}

TEST_F(DispatchMemoryTest, AChannelKeepsItsIdentity) {
  at_every_allocation([](Failing_Memory& memory) {
    const JSON_RPC_Channel_var channel = make_fake_channel(1, "old");
    json_spirit::Object version;
    version[long_text] = long_text;
    const Value data(long_text);
    memory([&] {
      channel->id(long_text);
      channel->version(version);
      channel->send_error(1, data, long_text.c_str(), data);
    });
    const std::string id = channel->id();
    EXPECT_TRUE(id == long_text || (memory.hit() && id == "old")) << id;
  });
}

}  // namespace
