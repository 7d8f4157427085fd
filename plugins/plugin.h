#pragma once

#include <new>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_object.h"
#include "vexa/adopt.h"

namespace plugin {

/// What a factory does: a new T, and the function that destroys it, through the type returned.
template <typename Base, typename T>
Base* make(void (**gobbler)(void*)) {
  *gobbler = [](void* object) { delete static_cast<Base*>(object); };
  return new (std::nothrow) T;
}

/// Answers `request` with `result`: 0, or -1 with errno.
inline int answer(JSON_RPC_Channel& channel, const JSON_RPC_Request& request,
                  json_spirit::Value result) {
  JSON_RPC_Response* const response = new (std::nothrow) JSON_RPC_Response(&request);
  JSON_RPC_Object_var handle;
  if (!vexa::adopt(handle, static_cast<JSON_RPC_Object*>(response))) return -1;
  response->result = std::move(result);
  return channel.send(handle);
}

/// Refuses the params of `request`, saying what would do.
inline int refuse(JSON_RPC_Channel& channel, const JSON_RPC_Request& request,
                  const char* expected) {
  return channel.send_error(JSON_RPC_INVALID_PARAMS, request.id, nullptr, expected);
}

/// A handler that answers at once, on the reading thread. Notifications are taken and ignored.
class Answering_Handler : public JSON_RPC_Handler {
public:
  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) override {
    if (object->type != JSON_RPC_Object::TYPE_REQUEST) return 0;
    const JSON_RPC_Channel_var requester(channel);
    if (requester.null()) return -1;
    return handle_request(*requester, static_cast<const JSON_RPC_Request&>(*object));
  }

private:
  virtual int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) = 0;
};

}  // namespace plugin
