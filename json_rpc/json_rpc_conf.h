#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_request_map.h"
#include "vexa/json_conf_t.h"

/// Records of method handlers.
struct JSON_RPC_Conf_Traits {
  typedef JSON_RPC_Handler object_type;
  static constexpr char key[] = "method";
  static constexpr char name[] = "JSON-RPC";
  JSON_RPC_EXPORT static JSON_RPC_Request_Map* registry();
};

typedef JSON_Conf_T<JSON_RPC_Conf_Traits> JSON_RPC_Conf;
