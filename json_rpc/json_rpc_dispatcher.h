#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"

/// Brings each message that a channel has read to the code that acts on it. Has no state; every
/// reading thread calls it at once. The handler runs on the calling thread, and gets channel and
/// message as they came.
///
/// All operations give what the handler gave, with the errno that it left (it finds errno 0): -1
/// with EWOULDBLOCK is a handler whose pool is full. An exception that a handler lets out is logged
/// here: -1, errno 0. For a message that no handler took the result is -1, unless said otherwise.
class JSON_RPC_EXPORT JSON_RPC_Dispatcher {
public:
  static JSON_RPC_Dispatcher* instance();
  static void close_instance();

  /// Routes by the message's type; one of no known type gives -1 silently.
  int dispatch(const JSON_RPC_Channel_ptr& channel, const JSON_RPC_Object_var& object);

  /// A request or notification, to the handler of its method. The handler answers, or nobody does.
  /// Without a handler a request is answered with -32601, and the result is what sending gives; a
  /// notification goes to the subscribers of its name.
  int dispatch_request(const JSON_RPC_Channel_ptr& channel, const JSON_RPC_Object_var& object);

  /// A response or error, to the handler that waits for its id, which stays in the response map.
  /// One that nobody waits for is dropped silently.
  int dispatch_response(const JSON_RPC_Channel_ptr& channel, const JSON_RPC_Object_var& object);
};
