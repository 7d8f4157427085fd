#include "tools/json_rpc_call/registries.h"

#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_channel_pool.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_response_map.h"

void create_registries() {
  JSON_RPC_Params_Handler_Map::instance();
  JSON_RPC_Request_Map::instance();
  JSON_RPC_Response_Map::instance();
  JSON_RPC_Channel_Map::instance();
  JSON_RPC_Channel_Pool::instance();
  JSON_RPC_Dispatcher::instance();
  JSON_RPC_Notify_Manager::instance();
}
