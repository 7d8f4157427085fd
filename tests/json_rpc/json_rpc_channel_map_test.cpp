#include "json_rpc/json_rpc_channel_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/json_rpc_fixture.h"
#include "vexa/addr_string.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

class ChannelMapTest : public JSON_RPC_Fixture {
protected:
  ChannelMapTest() {
    JSON_RPC_Notify_Manager::instance()->subscribe(listener_,
                                                   {"channel.registered", "channel.unregistered"});
  }

  /// What was announced since the last call, as "+id" and "-id".
  std::vector<std::string> announced() {
    std::vector<std::string> found;
    for (const JSON_RPC_Object_var& object : fake(listener_).objects()) {
      JSON_RPC_Request& event = static_cast<JSON_RPC_Request&>(*object);
      EXPECT_EQ(JSON_RPC_Object::TYPE_NOTIFY, event.type);
      found.push_back((event.method == "channel.registered" ? "+" : "-") +
                      event.params.get_obj().at("channel_id").get_str());
    }
    fake(listener_).forget();
    return found;
  }

  /// "type/id address" of every entry that is listed.
  std::vector<std::string> listed(int type) {
    JSON_RPC_Channel_Map::Channel_Infos infos(1);
    infos[0].id = "before";
    EXPECT_EQ(0, map_.channel_infos(infos, type));
    EXPECT_EQ("before", infos[0].id) << "appended";
    std::vector<std::string> texts;
    for (std::size_t i = 1; i < infos.size(); ++i) {
      texts.push_back(std::to_string(infos[i].type) + "/" + infos[i].id + " " +
                      ACE_Addr_String(infos[i].remote_addr).c_str());
    }
    return texts;
  }

  const JSON_RPC_Channel_var listener_ = make_fake_channel();
  JSON_RPC_Channel_Map map_;
};

TEST_F(ChannelMapTest, RegistrationIsLoggedAndAnnounced) {
  const JSON_RPC_Channel_var a = make_fake_channel(2, "a");
  EXPECT_EQ(0, map_.insert(a));
  EXPECT_EQ(0, map_.remove(a));
  EXPECT_THAT(
      fake(listener_).texts(),
      ElementsAre(
          MatchesRegex(R"(.*"channel.registered","params":\{"channel_address":)"
                       R"("192.0.2.3","channel_id":"a","channel_type":2,"ts":[0-9]{10}\}\})"),
          MatchesRegex(R"(.*"channel.unregistered","params":)"
                       R"(\{"channel_id":"a","channel_type":2,"ts":[0-9]{10}\}\})")));
  EXPECT_THAT(log_.texts(LM_INFO),
              ElementsAre("Channel(type: 2) a(192.0.2.1:1000) is registered.\n",
                          "Channel(type: 2) a is unregistered.\n"));
  fake(a).remote_result = fake(a).original_result = -1;
  EXPECT_EQ(0, map_.insert(a)) << "a missing address stops nothing";
  EXPECT_TRUE(log_.contains(LM_INFO, "Channel(type: 2) a() is registered.\n"));
  EXPECT_THAT(fake(listener_).texts().back(), HasSubstr(R"("channel_address":"",)"));
}

TEST_F(ChannelMapTest, UnregisteringSparesTheOneThatTookThePlace) {
  const JSON_RPC_Channel_var old = make_fake_channel(1, "a"), fresh = make_fake_channel(1, "a"),
                             low = make_fake_channel(-1, "a");
  map_.insert(low);
  map_.insert(old);
  map_.insert(fresh);
  announced();
  EXPECT_EQ(0, map_.remove(old));
  EXPECT_EQ(0, map_.remove(JSON_RPC_Channel_var()));
  EXPECT_THAT(announced(), IsEmpty());
  EXPECT_TRUE(map_.find(1, "a") == fresh);
  EXPECT_TRUE(map_.find("a") == low);
  EXPECT_EQ(0, map_.remove(fresh));
  EXPECT_EQ(0, map_.remove(5, "never there"));
  EXPECT_THAT(announced(), ElementsAre("-a", "-never there"));
  EXPECT_TRUE(log_.contains(LM_INFO, "Channel(type: 5) never there is unregistered.\n"));
}

TEST_F(ChannelMapTest, ListingShowsWhatLivesAndDropsWhatIsGone) {
  const JSON_RPC_Channel_var c = make_fake_channel(3, "c"), a = make_fake_channel(3, "a"),
                             z = make_fake_channel(1, "z");
  fake(c).remote_result = -1;
  JSON_RPC_Channel_var dead1 = make_fake_channel(1, "d1"), dead3 = make_fake_channel(3, "d3");
  for (const JSON_RPC_Channel_var& channel : {c, a, z, dead1, dead3}) map_.insert(channel);
  dead1 = JSON_RPC_Channel_var();
  dead3 = JSON_RPC_Channel_var();
  announced();
  log_.clear();
  EXPECT_THAT(listed(3), ElementsAre("3/a 192.0.2.1:1000", "3/c 192.0.2.1:1000"));
  EXPECT_THAT(announced(), ElementsAre("-d3"));
  EXPECT_THAT(log_.texts(LM_WARNING), ElementsAre("JSON-RPC channel d3 is gone.\n"));
  EXPECT_THAT(listed(0),
              ElementsAre("1/z 192.0.2.1:1000", "3/a 192.0.2.1:1000", "3/c 192.0.2.1:1000"));
  EXPECT_THAT(announced(), ElementsAre("-d1"));
}

TEST_F(ChannelMapTest, BroadcastsReachWhoIsNamedInOrder) {
  std::string order;
  std::vector<JSON_RPC_Channel_var> channels;
  for (const auto& key : {std::make_pair(2, "b"), std::make_pair(1, "c"), std::make_pair(2, "a"),
                          std::make_pair(2, "gone")}) {
    const std::string name = key.second;
    channels.push_back(make_fake_channel(key.first, name));
    fake(channels.back()).on_send = [&order, name](const JSON_RPC_Object_var&) { order += name; };
    fake(channels.back()).send_result = -1;
    map_.insert(channels.back());
  }
  channels.pop_back();
  const JSON_RPC_Object_var event = make_notification("n");
  const auto sent = [&order](int result) {
    EXPECT_EQ(0, result);
    std::string so_far;
    so_far.swap(order);
    return so_far;
  };
  EXPECT_EQ("cab", sent(map_.notify(event)));
  EXPECT_EQ("a", sent(map_.notify(2, "a", event)));
  EXPECT_EQ("", sent(map_.notify(2, "gone", event)));
  EXPECT_EQ("", sent(map_.notify(2, "c", event)));
  const json_spirit::Array ids{"b", 7, "gone", "a", "none", "b"};
  EXPECT_EQ("bab", sent(map_.notify(2, ids, event)));
}

/// Asks the map for something as it goes.
class Parting_Channel : public Fake_Channel {
public:
  explicit Parting_Channel(JSON_RPC_Channel_Map& map) : map_(map) {}
  ~Parting_Channel() override { EXPECT_EQ(0, map_.remove(8, "as it went")) << "no lock is held"; }

private:
  JSON_RPC_Channel_Map& map_;
};

TEST_F(ChannelMapTest, NoChannelIsDestroyedUnderTheLock) {
  JSON_RPC_Channel_var leaving;
  const auto lets_go = [this, &leaving] {
    leaving = JSON_RPC_Channel_var(new Parting_Channel(map_));
    leaving->id("leaving");
    fake(leaving).on_send = [&leaving](const JSON_RPC_Object_var&) {
      leaving = JSON_RPC_Channel_var();  // whoever calls send() has the last reference now
    };
    return leaving;
  };
  JSON_RPC_Notify_Manager::instance()->subscribe(lets_go(), {"channel.unregistered"});
  EXPECT_EQ(0, map_.remove(9, "b"));
  const JSON_RPC_Object_var event = make_notification("n");
  map_.insert(lets_go());
  EXPECT_EQ(0, map_.notify(event));
  map_.insert(lets_go());
  EXPECT_EQ(0, map_.notify(0, "leaving", event));
  EXPECT_THAT(announced(), ElementsAre("-b", "-as it went", "+leaving", "-as it went", "+leaving",
                                       "-as it went"));
}

TEST_F(ChannelMapTest, CallsBackOutOfAnUnregistrationFail) {
  const JSON_RPC_Channel_var a = make_fake_channel(1, "a");
  EXPECT_EQ(0, map_.insert(a));
  int asked = 0;
  fake(listener_).on_send = [&](const JSON_RPC_Object_var& obj) {
    ++asked;
    EXPECT_TRUE(map_.find(1, "a").null());
    EXPECT_EQ(-1, map_.insert(a));
    EXPECT_EQ(-1, map_.remove(a));
    EXPECT_EQ(-1, map_.notify(obj));
  };
  EXPECT_EQ(0, map_.remove(9, "other"));
  EXPECT_EQ(1, asked);
  EXPECT_TRUE(map_.find(1, "a") == a);
}

}  // namespace
