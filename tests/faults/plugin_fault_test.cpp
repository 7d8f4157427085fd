// What plug-ins and channels do in the middle of the library's own work: throw, give null, vanish,
// and call back into it.

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "json_rpc/json_rpc_reader.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;

namespace {

class PluginFaultTest : public JSON_RPC_Fixture {
protected:
  PluginFaultTest() {
    JSON_RPC_Dispatcher::instance();
    JSON_RPC_Response_Map::instance();
    JSON_RPC_Notify_Manager::instance();
    JSON_RPC_Channel_Map::instance();
  }
  JSON_RPC_Request_Map* const methods_ = JSON_RPC_Request_Map::instance();
};

/// Uses every table from wherever the library calls it.
class Calling_Handler final : public JSON_RPC_Handler {
public:
  ~Calling_Handler() override { use_all(JSON_RPC_Channel_var()); }
  int init(int, char**) override { return use_all(JSON_RPC_Channel_var()); }
  int handle_object(JSON_RPC_Channel_ptr weak, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(weak);
    use_all(channel);
    if (depth_ == 2) return channel->send(object);
    ++depth_;
    return JSON_RPC_Dispatcher::instance()->dispatch(weak, object);
  }

private:
  static int use_all(const JSON_RPC_Channel_var& channel) {
    if (!channel.null()) {
      EXPECT_EQ(0, JSON_RPC_Channel_Map::instance()->insert(channel));
      EXPECT_EQ(0, JSON_RPC_Notify_Manager::instance()->subscribe(channel, {"y"}));
      EXPECT_EQ(0, JSON_RPC_Notify_Manager::instance()->unsubscribe(channel));
      EXPECT_EQ(0, JSON_RPC_Channel_Map::instance()->remove(channel));
    }
    EXPECT_EQ(0, JSON_RPC_Response_Map::instance()->insert(9, JSON_RPC_Handler_var()));
    EXPECT_EQ(0, JSON_RPC_Response_Map::instance()->remove(9)) << "no lock is held";
    JSON_RPC_Notify_Manager::instance()->notify("y", make_notification("y"));
    return JSON_RPC_Request_Map::instance()->find("none") == nullptr ? 0 : -1;
  }
  int depth_ = 0;
};

/// A response handler that gives up its place, and with it itself, in the middle of its call.
struct Leaving_Handler final : JSON_RPC_Handler {
  explicit Leaving_Handler(bool& g) : gone(g) {}
  ~Leaving_Handler() override { gone = true; }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var object) override {
    EXPECT_EQ(0, JSON_RPC_Response_Map::instance()->remove(object->id));
    EXPECT_FALSE(gone) << "within its call";
    throw std::runtime_error("and throws");
  }
  bool& gone;
};

TEST_F(PluginFaultTest, HandlersMayComeBackToTheLibraryFromAnywhere) {
  const auto destroy = [](void* handler) { delete static_cast<JSON_RPC_Handler*>(handler); };
  for (const char* name : {"m", "n"}) {
    JSON_RPC_Handler* const handler = new Calling_Handler;
    EXPECT_EQ(0, handler->init(0, nullptr));
    ASSERT_EQ(0, methods_->insert(name, "", handler, destroy));
  }
  const JSON_RPC_Channel_var channel = make_fake_channel(1, "c");
  EXPECT_EQ(0, JSON_RPC_Dispatcher::instance()->dispatch(channel, make_request("m", 1)));
  EXPECT_EQ(1u, fake(channel).count());
  bool gone = false;
  JSON_RPC_Response_Map::instance()->insert(7, JSON_RPC_Handler_var(new Leaving_Handler(gone)));
  const JSON_RPC_Object_var answer(new JSON_RPC_Response(nullptr));
  answer->id = 7;
  EXPECT_EQ(-1, JSON_RPC_Dispatcher::instance()->dispatch(channel, answer));
  EXPECT_TRUE(gone);
  for (const int id : {1, 2}) {
    JSON_RPC_Response_Map::instance()->insert(id, JSON_RPC_Handler_var(new Calling_Handler));
  }
  EXPECT_EQ(0, JSON_RPC_Response_Map::instance()->remove(1)) << "goes outside the lock";
  JSON_RPC_Response_Map::instance()->clear();
  EXPECT_EQ(0, methods_->remove("n"));
  JSON_RPC_Request_Map::close_instance();  // and from the destructor of "m"
}

/// Declines, throws, or gives a filter that does.
class Bad_Creator final : public JSON_RPC_Params_Handler_Creator {
public:
  struct Filter final : YAJL_Handler {
    bool handle_number_i(const char*, std::size_t) override { throw 5; }
  };
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var request) override {
    if (request->id == Value(0)) return nullptr;
    if (request->id == Value(1)) throw std::runtime_error("no filter");
    return new Filter;
  }
};

TEST_F(PluginFaultTest, AFilterThatFailsCostsItsMessageAlone) {
  JSON_RPC_Params_Handler_Map::instance()->insert(
      "m", "", new Bad_Creator, [](void* creator) { delete static_cast<Bad_Creator*>(creator); });
  JSON_RPC_Reader reader;
  reader.mode(JSON_RPC_Reader::FILTER_REQUEST_MODE);
  for (int id = 0; id < 3; ++id) {
    const std::string bad = R"({"id":)" + std::to_string(id) + R"(,"method":"m","params":[1]})";
    const std::string good = R"({"id":3,"method":"m","params":["x"]})";
    ASSERT_TRUE(reader.open());
    EXPECT_FALSE(reader.read(bad.data(), bad.size()));
    EXPECT_TRUE(reader.refused());
    EXPECT_NE(JSON_RPC_Reader::ERROR_NO_MEMORY, reader.error());
    ASSERT_TRUE(reader.open());
    EXPECT_TRUE(reader.read(good.data(), good.size()) && reader.read(nullptr, 0));
    EXPECT_EQ(Value(3), reader.object()->id);
  }
  JSON_RPC_Params_Handler_Map::close_instance();
}

}  // namespace
