#include "json_rpc/json_rpc_response_map.h"

#include <gtest/gtest.h>

#include <vector>

#include "vexa/adopt.h"

namespace {

/// Looks into the map when it goes, as an answer that ends a call may.
class Handler : public JSON_RPC_Handler {
public:
  Handler(JSON_RPC_Response_Map& map, int& gone) : map_(map), gone_(gone) {}
  ~Handler() override {
    ++gone_;
    EXPECT_EQ(-1, map_.remove("nobody"));
  }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }

private:
  JSON_RPC_Response_Map& map_;
  int& gone_;
};

struct ResponseMapTest : ::testing::Test {
  JSON_RPC_Handler_var make() {
    JSON_RPC_Handler_var handler;
    vexa::adopt<JSON_RPC_Handler_var, JSON_RPC_Handler>(handler, new Handler(map, gone));
    return handler;
  }

  int gone = 0;
  JSON_RPC_Response_Map map;
};

TEST_F(ResponseMapTest, IdsCompareAsJSONValues) {
  const json_spirit::Value ids[] = {1, "1", 1.5, json_spirit::Value(), true};
  std::vector<JSON_RPC_Handler*> handlers;
  for (const json_spirit::Value& id : ids) {
    EXPECT_TRUE(map.find(id).null());
    const JSON_RPC_Handler_var handler = make();
    handlers.push_back(handler.get());
    EXPECT_EQ(0, map.insert(id, handler));
  }
  size_t i = 0;
  for (const json_spirit::Value& id : ids) EXPECT_EQ(handlers[i++], map.find(id).get());
}

TEST_F(ResponseMapTest, TheFirstOfAnIdStaysUntilRemoved) {
  const JSON_RPC_Handler_var first = make();
  EXPECT_EQ(0, map.insert("id", first));
  EXPECT_EQ(-1, map.insert("id", make()));
  EXPECT_EQ(1, gone);
  EXPECT_EQ(first.get(), map.find("id").get());
  EXPECT_EQ(0, map.remove("id"));
  EXPECT_EQ(-1, map.remove("id"));
  EXPECT_TRUE(map.find("id").null());
  EXPECT_EQ(1, gone);
}

// Each of these would deadlock, or find a broken map, if handlers went while it is locked.
TEST_F(ResponseMapTest, HandlersGoOutsideTheLock) {
  for (int i = 0; i < 3; ++i) ASSERT_EQ(0, map.insert(i, make()));
  EXPECT_EQ(0, map.remove(0));
  EXPECT_EQ(1, gone);
  map.clear();
  EXPECT_EQ(3, gone);
  EXPECT_TRUE(map.find(1).null());
  ASSERT_EQ(0, map.insert(4, make()));  // left to the destructor
}

}  // namespace
