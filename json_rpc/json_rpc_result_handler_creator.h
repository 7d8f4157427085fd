#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_spirit/json_spirit_value.h"

/// Supplies streaming handlers for the results of calls. For client code: nothing in this library
/// registers one.
class JSON_RPC_EXPORT JSON_RPC_Result_Handler_Creator {
public:
  JSON_RPC_Result_Handler_Creator() = default;
  JSON_RPC_Result_Handler_Creator(const JSON_RPC_Result_Handler_Creator&) = delete;
  JSON_RPC_Result_Handler_Creator& operator=(const JSON_RPC_Result_Handler_Creator&) = delete;
  virtual ~JSON_RPC_Result_Handler_Creator();

  /// A new handler, owned by the caller, for the parse events of the "result" value of the response
  /// to `id`; null when there is none. What the caller does then is its own to say.
  virtual YAJL_Handler* create(const json_spirit::Value& id) = 0;
};
