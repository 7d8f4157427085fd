#include "json_rpc/json_rpc_handler.h"

JSON_RPC_Handler::~JSON_RPC_Handler() = default;

int JSON_RPC_Handler::init(int, char**) { return 0; }

int JSON_RPC_Handler::fini() { return 0; }
