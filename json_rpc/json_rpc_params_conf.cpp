#include "json_rpc/json_rpc_params_conf.h"

JSON_RPC_Params_Handler_Map* JSON_RPC_Params_Conf_Traits::registry() {
  return JSON_RPC_Params_Handler_Map::instance();
}
