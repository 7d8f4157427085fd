#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"

/// Supplies, for each call of one method, a filter that takes the params as they are parsed, so
/// that they need not fit into memory as a tree. One object serves all reading threads at once.
class JSON_RPC_EXPORT JSON_RPC_Params_Handler_Creator {
public:
  JSON_RPC_Params_Handler_Creator() = default;
  JSON_RPC_Params_Handler_Creator(const JSON_RPC_Params_Handler_Creator&) = delete;
  JSON_RPC_Params_Handler_Creator& operator=(const JSON_RPC_Params_Handler_Creator&) = delete;
  virtual ~JSON_RPC_Params_Handler_Creator();

  /// As JSON_RPC_Handler::init() and fini().
  virtual int init(int argc, char** argv);
  virtual int fini();

  /// A new handler, owned by the caller, for the parse events of the "params" value of `request`,
  /// whose method is known by now. `channel` may be empty or gone. Null declines the call: the
  /// message is not read any further, and fails like one that is no valid request.
  virtual YAJL_Handler* create(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var request) = 0;
};
