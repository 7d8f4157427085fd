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
  channel_ = JSON_RPC_Channel::none();
  EXPECT_EQ(0, dispatcher_.dispatch(gone, request));
  EXPECT_THAT(log_.texts(LM_DEBUG),
              ElementsAre("Channel(type: 2) agent(192.0.2.1:1000) called JSON-RPC 'm'.\n",
                          "192.0.2.1:1000 called JSON-RPC 'm'.\n", "JSON-RPC 'm' is called.\n"));
  log_.clear();
  {
    const Log_Priorities quiet(LM_INFO | LM_WARNING | LM_ERROR | LM_EMERGENCY);
    EXPECT_EQ(0, dispatcher_.dispatch(gone, request));
  }
  handler->silence();
  EXPECT_EQ(0, dispatcher_.dispatch(gone, request));
  EXPECT_EQ(0u, log_.size());
}

TEST_F(DispatcherTest, ResultAndErrnoOfTheHandlerSurviveTheCallLine) {
  Probe_Handler* const handler = add("m");
  fake(channel_).remote_result = -1;  // the call line sets an errno of its own
  errno = ENOENT;
  handler->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) {
    EXPECT_EQ(0, errno);
    errno = EWOULDBLOCK;
    return -1;
  };
  EXPECT_EQ(-1, dispatch(make_request("m", 1)));
  EXPECT_EQ(EWOULDBLOCK, errno);
  EXPECT_EQ(1u, log_.texts(LM_DEBUG).size());
  EXPECT_EQ(0u, fake(channel_).count()) << "nothing is answered for a handler";
}

TEST_F(DispatcherTest, ExceptionsOfHandlersStopHere) {
  Probe_Handler* const handler = add("bad");
  handler->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) -> int {
    errno = EWOULDBLOCK;
    throw std::runtime_error("no luck");
  };
  EXPECT_EQ(-1, dispatch(make_request("bad", 1)));
  EXPECT_EQ(0, errno) << "not taken for a busy server";
  Probe_Handler* const waiting = new Probe_Handler;
  waiting->action = [](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) -> int { throw 5; };
  JSON_RPC_Response_Map::instance()->insert("r1", JSON_RPC_Handler_var(waiting));
  JSON_RPC_Object_var response(new JSON_RPC_Response(nullptr));
  response->id = "r1";
  EXPECT_EQ(-1, dispatch(response));
  EXPECT_THAT(
      log_.texts(LM_ERROR),
      ElementsAre(
          "Handler of JSON-RPC 'bad' threw an exception: no luck\n",
          "Handler of the JSON-RPC response (id=r1) threw an exception: unknown exception\n"));
}

TEST_F(DispatcherTest, UnknownMethodIsAnsweredToWhoAsked) {
  const JSON_RPC_Object_var request = make_request("nope", 4);
  EXPECT_EQ(0, dispatch(request));
  EXPECT_THAT(fake(channel_).texts(),
              ElementsAre(R"({"jsonrpc":"2.0","id":4,"error":)"
                          R"({"code":-32601,"message":"Method not found"}})"));
  fake(channel_).send_result = -1;
  EXPECT_EQ(-1, dispatch(request));
  const JSON_RPC_Channel_ptr gone(channel_);
  channel_ = JSON_RPC_Channel::none();
  EXPECT_EQ(-1, dispatcher_.dispatch(gone, request));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("JSON-RPC 'nope' by 192.0.2.1:1000 is not found.\n",
                                                "JSON-RPC 'nope' by 192.0.2.1:1000 is not found.\n",
                                                "JSON-RPC requester is gone.\n"));
}

TEST_F(DispatcherTest, UnknownNotificationGoesToItsSubscribers) {
  const JSON_RPC_Channel_var subscriber = make_fake_channel();
  JSON_RPC_Notify_Manager::instance()->subscribe(subscriber, {"news"});
  EXPECT_EQ(-1, dispatch(make_notification("news")));
  EXPECT_THAT(fake(subscriber).texts(), ElementsAre(R"({"jsonrpc":"2.0","method":"news"})"));
  EXPECT_EQ(0u, fake(channel_).count() + log_.size());
}

TEST_F(DispatcherTest, ResponsesGoToWhoWaitsForThatVeryId) {
  Probe_Handler* const waiting = new Probe_Handler;
  int called = 0;
  waiting->action = [&called](const JSON_RPC_Channel_ptr&, const JSON_RPC_Object_var&) {
    errno = EIO;
    return ++called;
  };
  JSON_RPC_Response_Map::instance()->insert(1, JSON_RPC_Handler_var(waiting));
  JSON_RPC_Object_var answers[] = {JSON_RPC_Object_var(new JSON_RPC_Response(nullptr)),
                                   JSON_RPC_Object_var(new JSON_RPC_Response_Error)};
  for (JSON_RPC_Object_var& answer : answers) {
    answer->id = "1";
    EXPECT_EQ(-1, dispatch(answer));
    answer->id = 1;
    const int before = called;
    EXPECT_EQ(before + 1, dispatch(answer)) << "the entry stays";
    EXPECT_EQ(EIO, errno);
  }
  EXPECT_EQ(2, called);
  EXPECT_EQ(0u, log_.size());
}

TEST_F(DispatcherTest, WhatIsNoMessageIsRefused) {
  EXPECT_EQ(-1, dispatch(JSON_RPC_Object_var(new JSON_RPC_Object(JSON_RPC_Object::TYPE_NONE))));
  EXPECT_EQ(0u, log_.size());
  EXPECT_EQ(-1, dispatch(JSON_RPC_Object_var()));
  EXPECT_EQ(1u, log_.count(", obj is NULL:\n"));
  EXPECT_EQ(-1, dispatcher_.dispatch_request(channel_, JSON_RPC_Object_var()));
  EXPECT_EQ(1u, log_.count(", req is NULL:\n"));
  EXPECT_EQ(2u, log_.texts(LM_EMERGENCY).size());
}

}  // namespace
