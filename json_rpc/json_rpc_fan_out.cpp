#include "json_rpc/json_rpc_fan_out.h"

#include <new>

#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace {
thread_local JSON_RPC_Fan_Out* innermost = nullptr;
}

JSON_RPC_Fan_Out::JSON_RPC_Fan_Out(const JSON_RPC_Object_var* obj)
    : obj_(obj), outer_(innermost), outermost_(outer_ != nullptr ? outer_->outermost_ : *this) {
  innermost = this;
}

JSON_RPC_Fan_Out::JSON_RPC_Fan_Out(const JSON_RPC_Object_var& obj) : JSON_RPC_Fan_Out(&obj) {}

JSON_RPC_Fan_Out::JSON_RPC_Fan_Out() : JSON_RPC_Fan_Out(nullptr) {}

JSON_RPC_Fan_Out::~JSON_RPC_Fan_Out() { innermost = outer_; }

JSON_RPC_Fan_Out* JSON_RPC_Fan_Out::current() { return innermost; }

JSON_RPC_Channel* JSON_RPC_Fan_Out::reach(const JSON_RPC_Channel_ptr& channel) noexcept {
  std::vector<JSON_RPC_Channel_var>& reached = outermost_.reached_;
  try {
    reached.emplace_back(channel);
  } catch (const std::bad_alloc&) {
    VEXA_ERROR("No memory to reach a channel.\n");
    return nullptr;
  }
  JSON_RPC_Channel* const alive = reached.back().get();
  if (alive == nullptr) reached.pop_back();
  return alive;
}

void JSON_RPC_Fan_Out::send(const JSON_RPC_Channel_ptr& channel) {
  JSON_RPC_Channel* const alive = reach(channel);
  if (alive == nullptr) return;
  try {
    alive->send(*obj_);
  } catch (...) {
    VEXA_ERROR("A channel's send() threw an exception: %C\n", vexa::exception_text());
  }
}
