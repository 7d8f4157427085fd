#include "json_rpc/json_rpc_fan_out.h"

#include <new>

namespace {
thread_local JSON_RPC_Fan_Out* innermost = nullptr;
}

JSON_RPC_Fan_Out::JSON_RPC_Fan_Out(const JSON_RPC_Object_var& obj) : obj_(&obj), outer_(innermost) {
  innermost = this;
}

JSON_RPC_Fan_Out::JSON_RPC_Fan_Out() : obj_(nullptr), outer_(innermost) { innermost = this; }

JSON_RPC_Fan_Out::~JSON_RPC_Fan_Out() {
  innermost = outer_;
  // Around the outer one another lock can be held still.
  if (outer_ != nullptr) outer_->reached_.splice(outer_->reached_.end(), reached_);
}

JSON_RPC_Fan_Out* JSON_RPC_Fan_Out::current() { return innermost; }

JSON_RPC_Channel* JSON_RPC_Fan_Out::reach(const JSON_RPC_Channel_ptr& channel) noexcept {
  try {
    reached_.emplace_back(channel);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  JSON_RPC_Channel* const alive = reached_.back().get();
  if (alive == nullptr) reached_.pop_back();
  return alive;
}

void JSON_RPC_Fan_Out::send(const JSON_RPC_Channel_ptr& channel) {
  JSON_RPC_Channel* const alive = reach(channel);
  if (alive != nullptr) alive->send(*obj_);
}
