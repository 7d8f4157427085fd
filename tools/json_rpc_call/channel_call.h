#pragma once

#include "tools/json_rpc_call/options.h"

class Peer;

/// Calls the method and prints the answer, in as many attempts as are wanted, each over a
/// connection of its own. The exit status. The last connection is left open.
int call_over_channel(const Options& options, Peer& peer);

/// Sends the notification and sees that it has left. The exit status.
int notify_over_channel(const Options& options, Peer& peer);
