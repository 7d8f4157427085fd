#pragma once

#include <functional>
#include <string>

#include "json_rpc/json_rpc_object.h"

// How a process becomes an agent of another: it sends the request "channel.register" over its link,
// with {"type": 1, "id": ID} and, where a secret is shared, "token". Once it was answered true the
// other one finds the channel under type 1 and that id.

/// Serves "channel.register". With an empty token anyone may register who comes over a Unix socket
/// or the loopback interface. Called when the services are loaded, before the loops start; 0, or -1
/// when a handler of that name is loaded already.
int serve_agent_registration(const std::string& token);

/// Makes the request that registers this process; a null handle when memory runs out.
std::function<JSON_RPC_Object_var()> agent_greeting(const std::string& id,
                                                    const std::string& token);
