#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "vexa/json_conf_t.h"

/// Records of params filters.
struct JSON_RPC_Params_Conf_Traits {
  typedef JSON_RPC_Params_Handler_Creator object_type;
  static constexpr char key[] = "method";
  static constexpr char name[] = "JSON-RPC Params";
  JSON_RPC_EXPORT static JSON_RPC_Params_Handler_Map* registry();
};

typedef JSON_Conf_T<JSON_RPC_Params_Conf_Traits> JSON_RPC_Params_Conf;
