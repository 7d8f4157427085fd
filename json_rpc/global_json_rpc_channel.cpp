#include "json_rpc/global_json_rpc_channel.h"

// Never destroyed: a host that leaves main without closing its services has them closed, and the
// last notifications published, after this library's static objects are gone.
JSON_RPC_Channel_ptr& Global_JSON_RPC_Channel::channel_ = *new JSON_RPC_Channel_ptr;

JSON_RPC_Channel_var Global_JSON_RPC_Channel::instance() { return channel_.strong(); }

void Global_JSON_RPC_Channel::instance(const JSON_RPC_Channel_ptr& channel) { channel_ = channel; }
