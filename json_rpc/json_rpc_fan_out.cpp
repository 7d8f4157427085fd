#include "json_rpc/json_rpc_fan_out.h"

namespace {
thread_local JSON_RPC_Fan_Out* innermost = nullptr;
}

JSON_RPC_Fan_Out::JSON_RPC_Fan_Out(const JSON_RPC_Object_var& obj) : obj_(obj), outer_(innermost) {
  innermost = this;
}

JSON_RPC_Fan_Out::~JSON_RPC_Fan_Out() { innermost = outer_; }

JSON_RPC_Fan_Out* JSON_RPC_Fan_Out::current() { return innermost; }

void JSON_RPC_Fan_Out::send(const JSON_RPC_Channel_ptr& channel) {
  const JSON_RPC_Channel_var alive(JSON_RPC_Channel::strong(channel));
  if (!alive.null()) alive->send(obj_);
}
