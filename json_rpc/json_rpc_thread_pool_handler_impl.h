#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"

/// A pool handler with one operation for each kind of message. They run on the workers, several at
/// once. `channel` is null when the peer has gone meanwhile, and otherwise stays alive during the
/// call. Nothing is answered here: a handler that wants the peer to see an error sends it.
class JSON_RPC_EXPORT JSON_RPC_Thread_Pool_Handler_Impl : public JSON_RPC_Thread_Pool_Handler {
public:
  /// The work, by the kind of message; as they stand, they do nothing and give 0.
  virtual int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& req);
  virtual int handle_notify(JSON_RPC_Channel* channel, JSON_RPC_Request& req);
  virtual int handle_response(JSON_RPC_Channel* channel, JSON_RPC_Response& resp);
  virtual int handle_response_error(JSON_RPC_Channel* channel, JSON_RPC_Response_Error& err);

  /// What the operation for the message gives; -1, with a log line, when its type is none of the
  /// four or is not its class's.
  int handle_object_i(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) override;
};
