#include "json_rpc/json_rpc_response_map.h"

#include <gtest/gtest.h>

namespace {

/// Looks into the map when it goes, as an answer that ends a call may. That would deadlock, or find
/// a broken map, if handlers went while it is locked.
struct Handler : JSON_RPC_Handler {
  Handler(JSON_RPC_Response_Map& m, int& g) : map(m), gone(g) {}
  ~Handler() override {
    ++gone;
    EXPECT_EQ(-1, map.remove("nobody"));
  }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
  JSON_RPC_Response_Map& map;
  int& gone;
};

TEST(ResponseMapTest, TheFirstOfAnIdStaysAndHandlersGoOutsideTheLock) {
  int gone = 0;
  {
    JSON_RPC_Response_Map map;
    const auto make = [&] { return JSON_RPC_Handler_var(new Handler(map, gone)); };
    for (const json_spirit::Value& id :
         {json_spirit::Value(1), json_spirit::Value("1"), json_spirit::Value()}) {
      EXPECT_TRUE(map.find(id).null());
      const JSON_RPC_Handler_var handler = make();
      EXPECT_EQ(0, map.insert(id, handler));
      EXPECT_EQ(-1, map.insert(id, make()));
      EXPECT_EQ(handler.get(), map.find(id).get());
    }
    EXPECT_EQ(3, gone);
    EXPECT_EQ(0, map.remove("1"));
    EXPECT_EQ(-1, map.remove("1"));
    EXPECT_EQ(4, gone);
    map.clear();
    EXPECT_EQ(6, gone);
    EXPECT_TRUE(map.find(1).null());
    ASSERT_EQ(0, map.insert(4, make()));  // left to the destructor
  }
  EXPECT_EQ(7, gone);
}

}  // namespace
