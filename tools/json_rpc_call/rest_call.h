#pragma once

#include "tools/json_rpc_call/options.h"

class Http_Client;

/// Sends the HTTP request, with its body where there is one, and prints the reply, in as many
/// attempts as are wanted. The exit status.
int call_rest(const Options& options, Http_Client& client);

/// The same with a form.
int post_form(const Options& options, Http_Client& client);
