#include "json_rpc/json_rpc_dispatcher.h"

#include <cerrno>
#include <new>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_response_map.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"
#include "vexa/peer_addr_string_t.h"
#include "vexa/singleton_t.h"

namespace {

typedef ACE_Peer_Addr_String_T<JSON_RPC_Channel> Peer_Addr_String;

/// What the handler gives, with its errno. When it throws: -1 and errno 0, after `log` got the
/// text.
template <typename Log>
int call(JSON_RPC_Handler& handler, const JSON_RPC_Channel_ptr& channel,
         const JSON_RPC_Object_var& object, Log log) {
  try {
    errno = 0;
    return handler.handle_object(channel, object);
  } catch (...) {
    log(vexa::exception_text());
  }
  errno = 0;
  return -1;
}

void log_call(const JSON_RPC_Channel_ptr& weak, const std::string& method) {
  const JSON_RPC_Channel_var channel(weak);
  if (channel.null()) {
    VEXA_DEBUG("JSON-RPC '%s' is called.\n", method.c_str());
    return;
  }
  const Peer_Addr_String peer(channel.get(), true, true);
  const std::string id = channel->id();
  if (id.empty()) {
    VEXA_DEBUG("%s called JSON-RPC '%s'.\n", peer.c_str(), method.c_str());
  } else {
    VEXA_DEBUG("Channel(type: %d) %s(%s) called JSON-RPC '%s'.\n", channel->type(), id.c_str(),
               peer.c_str(), method.c_str());
  }
}

/// `method` is not the message's own text: the handler may have handed the message to a thread that
/// takes it apart.
int call_method(JSON_RPC_Handler& handler, const JSON_RPC_Channel_ptr& channel,
                const JSON_RPC_Object_var& object, const std::string& method) {
  const int result = call(handler, channel, object, [&method](const char* what) {
    VEXA_ERROR("Handler of JSON-RPC '%s' threw an exception: %s\n", method.c_str(), what);
  });
  if (!handler.silent() && ACE_LOG_MSG->log_priority_enabled(LM_DEBUG)) {
    const int left = errno;
    log_call(channel, method);
    errno = left;
  }
  return result;
}

int answer_not_found(const JSON_RPC_Channel_ptr& weak, const JSON_RPC_Request& request) {
  const JSON_RPC_Channel_var channel(weak);
  if (channel.null()) {
    VEXA_ERROR("JSON-RPC requester is gone.\n");
    return -1;
  }
  if (ACE_LOG_MSG->log_priority_enabled(LM_ERROR)) {
    const Peer_Addr_String peer(channel.get(), true, true);
    VEXA_ERROR("JSON-RPC '%s' by %s is not found.\n", request.method.c_str(), peer.c_str());
  }
  return channel->send_error(JSON_RPC_METHOD_NOT_FOUND, request.id, nullptr,
                             json_spirit::Value::null);
}

/// Null when the message is of another kind.
const JSON_RPC_Request* request_of(const JSON_RPC_Object_var& object) {
  const JSON_RPC_Object* const message = object.get();
  if (message == nullptr) return nullptr;
  const bool is_request = message->type == JSON_RPC_Object::TYPE_REQUEST ||
                          message->type == JSON_RPC_Object::TYPE_NOTIFY;
  return is_request ? static_cast<const JSON_RPC_Request*>(message) : nullptr;
}

}  // namespace

JSON_RPC_Dispatcher* JSON_RPC_Dispatcher::instance() {
  return Singleton_T<JSON_RPC_Dispatcher>::instance();
}
void JSON_RPC_Dispatcher::close_instance() { Singleton_T<JSON_RPC_Dispatcher>::close(); }

int JSON_RPC_Dispatcher::dispatch(const JSON_RPC_Channel_ptr& channel,
                                  const JSON_RPC_Object_var& object) {
  VEXA_CHECK(object.get() != nullptr, "obj is NULL", -1);
  switch (object->type) {
    case JSON_RPC_Object::TYPE_NOTIFY:
    case JSON_RPC_Object::TYPE_REQUEST:
      return dispatch_request(channel, object);
    case JSON_RPC_Object::TYPE_RESPONSE:
    case JSON_RPC_Object::TYPE_RESPONSE_ERROR:
      return dispatch_response(channel, object);
    default:
      return -1;
  }
}

int JSON_RPC_Dispatcher::dispatch_request(const JSON_RPC_Channel_ptr& channel,
                                          const JSON_RPC_Object_var& object) {
  const JSON_RPC_Request* const req = request_of(object);
  VEXA_CHECK(req != nullptr, "req is NULL", -1);
  const std::string* method = nullptr;
  JSON_RPC_Handler* const handler = JSON_RPC_Request_Map::instance()->find(req->method, method);
  if (handler != nullptr) return call_method(*handler, channel, object, *method);
  if (req->type != JSON_RPC_Object::TYPE_NOTIFY) return answer_not_found(channel, *req);
  try {
    JSON_RPC_Notify_Manager::instance()->notify(req->method, object);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;  // the copy of the name
  }
  return -1;
}

int JSON_RPC_Dispatcher::dispatch_response(const JSON_RPC_Channel_ptr& channel,
                                           const JSON_RPC_Object_var& object) {
  VEXA_CHECK(object.get() != nullptr, "obj is NULL", -1);
  const JSON_RPC_Handler_var handler(JSON_RPC_Response_Map::instance()->find(object->id));
  if (handler.get() == nullptr) return -1;
  return call(*handler, channel, object, [&object](const char* what) {
    VEXA_ERROR("Handler of the JSON-RPC response (id=%s) threw an exception: %s\n",
               JSON_RPC_Id(object->id).c_str(), what);
  });
}
