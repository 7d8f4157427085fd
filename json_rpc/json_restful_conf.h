#pragma once

#include "json_rpc/json_restful_handler_creator_map.h"
#include "json_rpc/json_rpc_export.h"
#include "vexa/json_conf_t.h"

/// Records of RESTful handlers.
struct JSON_RESTful_Conf_Traits : URI_Base_Conf_Traits {
  typedef Object_Creator_T<JSON_RESTful_Handler> object_type;
  static constexpr char name[] = "JSON RESTful";
  JSON_RPC_EXPORT static JSON_RESTful_Handler_Creator_Map* registry();
};

typedef JSON_Conf_T<JSON_RESTful_Conf_Traits> JSON_RESTful_Conf;
