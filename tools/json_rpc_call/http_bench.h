#pragma once

#include "tools/json_rpc_call/options.h"

class Http_Client;

/// Benchmarks the call over one HTTP session that all callers share. The exit status.
int bench_over_http(const Options& options, Http_Client& client);
