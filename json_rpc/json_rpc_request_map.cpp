#include "json_rpc/json_rpc_request_map.h"

#include "vexa/singleton_t.h"

JSON_RPC_Request_Map::JSON_RPC_Request_Map() = default;
JSON_RPC_Request_Map::~JSON_RPC_Request_Map() = default;

JSON_RPC_Request_Map* JSON_RPC_Request_Map::instance() {
  return Singleton_T<JSON_RPC_Request_Map>::instance();
}
void JSON_RPC_Request_Map::close_instance() { Singleton_T<JSON_RPC_Request_Map>::close(); }
