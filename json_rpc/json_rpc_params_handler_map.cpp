#include "json_rpc/json_rpc_params_handler_map.h"

#include "vexa/singleton_t.h"

JSON_RPC_Params_Handler_Map::JSON_RPC_Params_Handler_Map() = default;
JSON_RPC_Params_Handler_Map::~JSON_RPC_Params_Handler_Map() = default;

JSON_RPC_Params_Handler_Map* JSON_RPC_Params_Handler_Map::instance() {
  return Singleton_T<JSON_RPC_Params_Handler_Map>::instance();
}
void JSON_RPC_Params_Handler_Map::close_instance() {
  Singleton_T<JSON_RPC_Params_Handler_Map>::close();
}
