#pragma once

#include "tools/json_rpc_call/options.h"

class Http_Client;

/// Calls the method by POST and prints the answer, in as many attempts as are wanted. The exit
/// status.
int call_over_http(const Options& options, Http_Client& client);

/// The same with a notification, of which the server's status is all that comes back.
int notify_over_http(const Options& options, Http_Client& client);
