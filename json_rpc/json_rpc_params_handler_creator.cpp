#include "json_rpc/json_rpc_params_handler_creator.h"

JSON_RPC_Params_Handler_Creator::~JSON_RPC_Params_Handler_Creator() = default;

int JSON_RPC_Params_Handler_Creator::init(int, char**) { return 0; }

int JSON_RPC_Params_Handler_Creator::fini() { return 0; }
