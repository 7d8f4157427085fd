#include "transport/current_message.h"

namespace transport {

namespace {

thread_local const Current_Message* current = nullptr;

}  // namespace

Current_Message::Current_Message(const JSON_RPC_Channel* origin, const JSON_RPC_Object* object)
    : origin_(origin), object_(object), outer_(current) {
  current = this;
}

Current_Message::~Current_Message() { current = outer_; }

bool Current_Message::is(const JSON_RPC_Channel* channel, const JSON_RPC_Object* object) {
  for (const Current_Message* m = current; m != nullptr; m = m->outer_) {
    if (m->origin_ == channel && m->object_ == object) return true;
  }
  return false;
}

}  // namespace transport
