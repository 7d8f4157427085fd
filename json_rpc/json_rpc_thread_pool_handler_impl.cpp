#include "json_rpc/json_rpc_thread_pool_handler_impl.h"

#include "vexa/json_dump.h"
#include "vexa/log.h"

int JSON_RPC_Thread_Pool_Handler_Impl::handle_request(JSON_RPC_Channel*, JSON_RPC_Request&) {
  return 0;
}
int JSON_RPC_Thread_Pool_Handler_Impl::handle_notify(JSON_RPC_Channel*, JSON_RPC_Request&) {
  return 0;
}
int JSON_RPC_Thread_Pool_Handler_Impl::handle_response(JSON_RPC_Channel*, JSON_RPC_Response&) {
  return 0;
}
int JSON_RPC_Thread_Pool_Handler_Impl::handle_response_error(JSON_RPC_Channel*,
                                                             JSON_RPC_Response_Error&) {
  return 0;
}

namespace {

template <typename Message>
int pass(JSON_RPC_Thread_Pool_Handler_Impl& handler,
         int (JSON_RPC_Thread_Pool_Handler_Impl::*operation)(JSON_RPC_Channel*, Message&),
         JSON_RPC_Channel* channel, JSON_RPC_Object* obj) {
  Message* const p = dynamic_cast<Message*>(obj);
  VEXA_CHECK(p != nullptr, "p is NULL", -1);
  return (handler.*operation)(channel, *p);
}

}  // namespace

int JSON_RPC_Thread_Pool_Handler_Impl::handle_object_i(JSON_RPC_Channel_ptr channel,
                                                       JSON_RPC_Object_var obj) {
  typedef JSON_RPC_Thread_Pool_Handler_Impl Self;
  VEXA_CHECK(obj.get() != nullptr, "obj is NULL", -1);
  const JSON_RPC_Channel_var alive(channel);
  JSON_RPC_Channel* const peer = alive.get();
  switch (obj->type) {
    case JSON_RPC_Object::TYPE_NOTIFY:
      return pass(*this, &Self::handle_notify, peer, obj.get());
    case JSON_RPC_Object::TYPE_REQUEST:
      return pass(*this, &Self::handle_request, peer, obj.get());
    case JSON_RPC_Object::TYPE_RESPONSE:
      return pass(*this, &Self::handle_response, peer, obj.get());
    case JSON_RPC_Object::TYPE_RESPONSE_ERROR:
      return pass(*this, &Self::handle_response_error, peer, obj.get());
    default:
      VEXA_ERROR("An unknown type(%d) of JSON-RPC object(id: %s) is receivced.\n",
                 static_cast<int>(obj->type), JSON_Dump(obj->id, false).c_str());
      return -1;
  }
}
