#include "json_rpc/json_rpc_forward_map.h"

#include <gtest/gtest.h>

#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;

namespace {

class ForwardMapTest : public JSON_RPC_Fixture {
protected:
  JSON_RPC_Forward_Map map_;
};

TEST_F(ForwardMapTest, ClearAnswersThoseWhoStillWait) {
  const JSON_RPC_Channel_var live = make_fake_channel();
  fake(live).send_result = -1;  // what one requester's send gives stops nothing
  map_.put("x", live);
  map_.put("gone-id", make_fake_channel());
  const JSON_RPC_Channel_var other = make_fake_channel();
  map_.put(9, other);
  JSON_RPC_Forward_Map::data_type data;
  int reached = 0;
  fake(live).on_send = [&](const JSON_RPC_Object_var& obj) {
    ++reached;
    EXPECT_EQ(Value("x"), obj->id);
    EXPECT_EQ(-1, map_.get(3, data)) << "the walk does not mind calls back";
  };
  map_.clear();
  EXPECT_EQ(1, reached);
  EXPECT_EQ(std::vector<std::string>{R"({"jsonrpc":"2.0","id":9,"error":{"code":-32603,)"
                                     R"("message":"Internal error, forwarder is closed."}})"},
            fake(other).texts());
  EXPECT_EQ(
      std::vector<std::string>{
          "Abort sending JSON-RPC error, requester (id=gone-id, forward_id=2) is gone\n"},
      log_.texts(LM_ERROR));
  EXPECT_EQ(4, map_.put("next", live));
}

}  // namespace
