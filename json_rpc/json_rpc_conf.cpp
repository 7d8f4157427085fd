#include "json_rpc/json_rpc_conf.h"

JSON_RPC_Request_Map* JSON_RPC_Conf_Traits::registry() { return JSON_RPC_Request_Map::instance(); }
