#include "json_rpc/json_rpc_result_handler_creator.h"

JSON_RPC_Result_Handler_Creator::~JSON_RPC_Result_Handler_Creator() = default;
