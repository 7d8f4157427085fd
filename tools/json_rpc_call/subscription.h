#pragma once

#include "tools/json_rpc_call/options.h"

class Peer;

/// Subscribes, and prints each notification on a line of its own, until as many as wanted have
/// come, the connection is lost, or a signal ends the process. The exit status.
int subscribe(const Options& options, Peer& peer);
