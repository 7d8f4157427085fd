#include "json_rpc/json_rpc_dispatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>

#include "json_rpc/json_rpc_handler.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;
using ::testing::ElementsAre;

namespace {

class Probe_Handler : public JSON_RPC_Handler {
public:
  std::function<int(const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&)> action;
  void silence() { silent_ = true; }
  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) override {
    return action(channel, obj);
  }
};

class DispatcherTest : public JSON_RPC_Fixture {
protected:
  Probe_Handler* add(const std::string& method) {
    Probe_Handler* const handler = new Probe_Handler;
    handler->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) { return 0; };
    EXPECT_EQ(0, JSON_RPC_Request_Map::instance()->insert(method, "", handler, nullptr));
    return handler;
  }
  int dispatch(const JSON_RPC_Object_var& object) { return dispatcher_.dispatch(channel_, object); }

  JSON_RPC_Dispatcher dispatcher_;
  JSON_RPC_Channel_var channel_ = make_fake_channel(2, "agent");
};

TEST_F(DispatcherTest, CallLineSaysWhoCalled) {
  Probe_Handler* const handler = add("m");
  const JSON_RPC_Object_var request = make_request("m", 1);
  EXPECT_EQ(0, dispatch(request));
  channel_->id("");
  EXPECT_EQ(0, dispatch(make_notification("m")));
  const JSON_RPC_Channel_ptr gone(channel_);
  channel_ = JSON_RPC_Channel_var();
  EXPECT_EQ(0, dispatcher_.dispatch(gone, request));
  EXPECT_THAT(log_.texts(LM_DEBUG),
              ElementsAre("Channel(type: 2) agent(192.0.2.1:1000) called JSON-RPC 'm'.\n",
                          "192.0.2.1:1000 called JSON-RPC 'm'.\n", "JSON-RPC 'm' is called.\n"));
  log_.clear();
  handler->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var& object) {
    static_cast<JSON_RPC_Request&>(*object).method = "taken";
    return 0;
  };
  EXPECT_EQ(0, dispatcher_.dispatch(gone, make_request("m", 1)));
  EXPECT_THAT(log_.texts(LM_DEBUG), ElementsAre("JSON-RPC 'm' is called.\n"));
  log_.clear();
  {
    const Log_Priorities quiet(LM_INFO | LM_WARNING | LM_ERROR | LM_EMERGENCY);
    EXPECT_EQ(0, dispatcher_.dispatch(gone, make_request("m", 1)));
  }
  handler->silence();
  EXPECT_EQ(0, dispatcher_.dispatch(gone, make_request("m", 1)));
  EXPECT_EQ(0u, log_.size());
}

TEST_F(DispatcherTest, UnknownRequestsAreAnsweredOrLogged) {
  EXPECT_EQ(0, dispatch(make_request("m", 4)));
  EXPECT_THAT(
      fake(channel_).texts(),
      ElementsAre(
          R"({"jsonrpc":"2.0","id":4,"error":{"code":-32601,"message":"Method not found"}})"));
  EXPECT_EQ(-1, dispatcher_.dispatch(JSON_RPC_Channel_ptr(), make_request("m", 4)));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("JSON-RPC 'm' by 192.0.2.1:1000 is not found.\n",
                                                "JSON-RPC requester is gone.\n"));
}

TEST_F(DispatcherTest, WhatAHandlerGivesIsKeptAndExceptionsStopHere) {
  Probe_Handler* const handler = add("bad");
  handler->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) -> int {
    errno = EWOULDBLOCK;
    throw std::runtime_error("no luck");
  };
  EXPECT_EQ(-1, dispatch(make_request("bad", 1)));
  EXPECT_EQ(0, errno) << "not taken for a busy server";
  EXPECT_TRUE(log_.contains(LM_ERROR, "Handler of JSON-RPC 'bad' threw an exception: no luck\n"));
  fake(channel_).remote_result = -1;  // the call line sets an errno of its own
  handler->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) {
    errno = EWOULDBLOCK;
    return -1;
  };
  EXPECT_EQ(-1, dispatch(make_request("bad", 1)));
  EXPECT_EQ(EWOULDBLOCK, errno);
  log_.clear();
  Probe_Handler* const waiting = new Probe_Handler;
  waiting->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) -> int { throw 5; };
  JSON_RPC_Response_Map::instance()->insert("r1", JSON_RPC_Handler_var(waiting));
  JSON_RPC_Object_var response(new JSON_RPC_Response(nullptr));
  response->id = "r1";
  EXPECT_EQ(-1, dispatch(response));
  EXPECT_THAT(
      log_.texts(LM_ERROR),
      ElementsAre(
          "Handler of the JSON-RPC response (id=r1) threw an exception: unknown exception\n"));
}

}  // namespace
