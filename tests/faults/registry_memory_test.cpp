// The tables of the process when memory fails: all or nothing, no lock left held, good afterwards.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_forward_map.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;

namespace {

const std::string long_text = "a text that is too long to be kept in place, by far";

/// Counts what it is sent; sending costs no memory.
class Counting_Channel final : public Fake_Channel {
public:
  int send(JSON_RPC_Object_var obj) override {
    ++sent;
    static_cast<void>(obj);
    return 0;
  }
  int sent = 0;
};

struct Silent_Handler final : JSON_RPC_Handler {
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
};

class RegistryMemoryTest : public ::testing::Test {
protected:
  ~RegistryMemoryTest() override {
    Global_JSON_RPC_Channel::instance(JSON_RPC_Channel::none());
    JSON_RPC_Notify_Manager::close_instance();
    JSON_RPC_Dispatcher::close_instance();
    JSON_RPC_Request_Map::close_instance();
  }
  /// Made before memory fails, as the service does.
  JSON_RPC_Notify_Manager* const notify_ = JSON_RPC_Notify_Manager::instance();
  JSON_RPC_Dispatcher* const dispatcher_ = JSON_RPC_Dispatcher::instance();
  JSON_RPC_Request_Map* const methods_ = JSON_RPC_Request_Map::instance();
};

TEST_F(RegistryMemoryTest, TablesTakeAllOrNothing) {
  at_every_allocation([](Failing_Memory& memory) {
    const JSON_RPC_Channel_var channel = make_fake_channel(1, long_text);
    const JSON_RPC_Handler_var handler(new Silent_Handler);
    JSON_RPC_Response_Map responses;
    JSON_RPC_Channel_Pool pool;
    JSON_RPC_Forward_Map forwards;
    JSON_RPC_Notify_Manager subscriptions;
    JSON_RPC_Request_Map methods;
    Silent_Handler* const method = new Silent_Handler;
    const Value id(long_text);
    const std::vector<std::string> subjects{"a", long_text, "*"};
    int results[5] = {-2, -2, -2, -2, -2};
    int errors[5] = {};
    const auto note = [&](int at, int result) {
      results[at] = result;
      errors[at] = errno;
    };
    memory([&] {
      note(0, responses.insert(id, handler));
      note(1, pool.insert(channel));
      note(2, forwards.put(id, channel) > 0 ? 0 : -1);
      note(3, subscriptions.subscribe(channel, subjects));
      note(4, methods.insert(long_text, long_text, method, nullptr));
    });
    for (int i = 0; i < 5; ++i) {
      if (results[i] != 0) {
        EXPECT_EQ(ENOMEM, errors[i]) << i;
      }
      EXPECT_TRUE(results[i] == 0 || memory.hit()) << i;
    }
    EXPECT_EQ(results[0] == 0, responses.contains(long_text));
    EXPECT_EQ(results[1] == 0, !pool.channel().null());
    EXPECT_EQ(results[3] == 0 ? 3u : 0u, subscriptions.size());
    EXPECT_EQ(results[4] == 0 ? method : nullptr, methods.find(long_text));
    EXPECT_EQ(results[0] == 0 ? -1 : 0, responses.insert(long_text, handler));
    EXPECT_EQ(results[1] == 0 ? -1 : 0, pool.insert(channel));
    EXPECT_LT(0, forwards.put(1, channel));
    EXPECT_EQ(0, subscriptions.subscribe(channel, {"b"}));
    EXPECT_EQ(0, subscriptions.unsubscribe(channel));
    EXPECT_EQ(0u, subscriptions.size());
    if (results[4] != 0) {
      EXPECT_EQ(0, methods.insert("m", "", method, nullptr));
    }
  });
}

TEST_F(RegistryMemoryTest, AChannelIsListedUnderItsOwnIdOrNotAtAll) {
  at_every_allocation([this](Failing_Memory& memory) {
    JSON_RPC_Channel_Map map;
    const JSON_RPC_Channel_var channel = make_fake_channel(1, long_text);
    const JSON_RPC_Channel_var other = make_fake_channel(1, "");
    Counting_Channel* const counting = new Counting_Channel;
    const JSON_RPC_Channel_var subscriber(counting);
    notify_->subscribe(subscriber, {"*"});
    ASSERT_EQ(0, map.insert(other));
    int inserted = -1;
    memory([&] { inserted = map.insert(channel); });
    EXPECT_TRUE(inserted == 0 || memory.hit());
    EXPECT_EQ(inserted == 0, map.find(1, long_text) == channel);
    EXPECT_TRUE(map.find(1, "") == other) << "nobody else's place is taken";
    EXPECT_EQ(0, map.insert(channel));
    notify_->unsubscribe(subscriber);
  });
}

TEST_F(RegistryMemoryTest, AChannelThatGoesIsUnlistedWhateverFails) {
  at_every_allocation([this](Failing_Memory& memory) {
    JSON_RPC_Channel_Map map;
    const JSON_RPC_Channel_var channel = make_fake_channel(1, long_text);
    const JSON_RPC_Channel_var other = make_fake_channel(1, "");
    ASSERT_EQ(0, map.insert(channel) + map.insert(other));
    ASSERT_EQ(0, notify_->subscribe(channel, {long_text, "*"}));
    memory([&] {
      EXPECT_EQ(0, notify_->unsubscribe(channel));
      EXPECT_EQ(0, map.remove(channel));
    });
    EXPECT_TRUE(map.find(1, long_text).null());
    EXPECT_TRUE(map.find(1, "") == other);
    EXPECT_EQ(0u, notify_->size());
  });
}

TEST_F(RegistryMemoryTest, FanningOutSkipsWhomItCannotReachAndHoldsNoLock) {
  at_every_allocation([this](Failing_Memory& memory) {
    JSON_RPC_Channel_Map map;
    Counting_Channel* const counting[] = {new Counting_Channel, new Counting_Channel};
    const JSON_RPC_Channel_var channels[] = {JSON_RPC_Channel_var(counting[0]),
                                             JSON_RPC_Channel_var(counting[1])};
    for (int i = 0; i < 2; ++i) {
      channels[i]->id(long_text + std::to_string(i));
      ASSERT_EQ(0, map.insert(channels[i]));
      ASSERT_EQ(0, notify_->subscribe(channels[i], {long_text}));
      counting[i]->sent = 0;
    }
    JSON_RPC_Channel_ptr gone;
    {
      const JSON_RPC_Channel_var going = make_fake_channel(0, "going");
      gone = going;
      ASSERT_EQ(0, map.insert(going) + notify_->subscribe(gone, {long_text}));
    }
    const JSON_RPC_Object_var event = make_notification(long_text);
    JSON_RPC_Channel_Map::Channel_Infos infos;
    const std::string first = long_text + "0";
    memory([&] {
      dispatcher_->dispatch(channels[0], event);
      map.notify(event);
      map.notify(0, first, event);
      map.channel_infos(infos, 0);
    });
    if (!memory.hit()) {
      EXPECT_EQ(3, counting[0]->sent);
    }
    for (int i = 0; i < 2; ++i) {
      EXPECT_LE(counting[i]->sent, 3);
      counting[i]->sent = 0;
    }
    EXPECT_EQ(0, notify_->notify(long_text, event));
    EXPECT_EQ(0, map.notify(event));
    EXPECT_EQ(2, counting[0]->sent);
    EXPECT_EQ(2, counting[1]->sent);
    EXPECT_EQ(0, notify_->unsubscribe(long_text));
    for (const auto& channel : channels) EXPECT_EQ(0, map.remove(channel));
  });
}

/// Answers nothing; what the dispatcher does around a call can fail all the same.
TEST_F(RegistryMemoryTest, DispatchingLetsNoExceptionOut) {
  const Log_Priorities all(LM_DEBUG | LM_INFO | LM_WARNING | LM_ERROR);
  methods_->insert(long_text, "", new Silent_Handler, nullptr);
  for (const std::string& method : {long_text, std::string("unknown ") + long_text}) {
    at_every_allocation([&](Failing_Memory& memory) {
      Counting_Channel* const counting = new Counting_Channel;
      const JSON_RPC_Channel_var channel(counting);
      channel->id(long_text);
      const JSON_RPC_Object_var call = make_request(method, long_text);
      const bool known = method == long_text;
      int result = -2;
      memory([&] { result = dispatcher_->dispatch(channel, call); });
      if (known) {
        EXPECT_EQ(0, result) << "the handler has taken it";
      }
      EXPECT_TRUE(result == 0 || memory.hit());
      EXPECT_EQ(!known && result == 0 ? 1 : 0, counting->sent);
      EXPECT_EQ(0, dispatcher_->dispatch(channel, call));
    });
  }
}

TEST_F(RegistryMemoryTest, AChannelKeepsItsIdentity) {
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
