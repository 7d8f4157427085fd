#pragma once

#include "json_rpc/json_rpc_channel_ptr.h"

/// Class names and the channel's handles, for headers that only pass them on. The handles of other
/// classes live in their headers: dropping one of a class that is only declared would skip the
/// destructor.
class JSON_RPC_Object;
class JSON_RPC_Request;
class JSON_RPC_Response;
class JSON_RPC_Response_Error;
class JSON_RPC_Channel;
class JSON_RPC_Handler;
class JSON_RESTful_Channel;
class JSON_RESTful_Handler;
class JSON_Generator;
class YAJL_Handler;
