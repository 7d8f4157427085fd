#pragma once

#include <gtest/gtest.h>

#include <string>

#include "json_rpc/global_json_rpc_channel.h"
#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_channel_pool.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_object.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_response_map.h"
#include "tests/support/fake_channel.h"
#include "tests/support/log_capture.h"

/// Captures the log, and leaves neither process-wide objects nor a default channel behind.
class JSON_RPC_Fixture : public ::testing::Test {
protected:
  ~JSON_RPC_Fixture() override {
    Global_JSON_RPC_Channel::instance(JSON_RPC_Channel_var());
    JSON_RPC_Notify_Manager::close_instance();
    JSON_RPC_Dispatcher::close_instance();
    JSON_RPC_Channel_Pool::close_instance();
    JSON_RPC_Channel_Map::close_instance();
    JSON_RPC_Response_Map::close_instance();
    JSON_RPC_Request_Map::close_instance();
  }

  Log_Capture log_;
};

inline JSON_RPC_Object_var make_request(const std::string& method, const json_spirit::Value& id) {
  JSON_RPC_Request* const request = new JSON_RPC_Request;
  request->method = method;
  request->id = id;
  return JSON_RPC_Object_var(request);
}

inline JSON_RPC_Object_var make_notification(const std::string& method) {
  const JSON_RPC_Object_var object = make_request(method, json_spirit::Value());
  object->type = JSON_RPC_Object::TYPE_NOTIFY;
  return object;
}

/// Each one lies where the one before lay: tables must not take it for that one.
class Reborn_Channel : public Fake_Channel {
public:
  static void* operator new(std::size_t) {
    alignas(Fake_Channel) static unsigned char place[sizeof(Fake_Channel)];
    return place;
  }
  static void operator delete(void*) {}
};
static_assert(sizeof(Reborn_Channel) == sizeof(Fake_Channel));
