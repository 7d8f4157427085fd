#pragma once

#include "tools/json_rpc_call/options.h"

class Peer;

/// Benchmarks the call over one connection that all callers share. The exit status.
int bench_over_channel(const Options& options, Peer& peer);
