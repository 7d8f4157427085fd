#pragma once

#include <functional>
#include <memory>
#include <string>

#include "json_rpc/json_rpc_object.h"
#include "tools/json_rpc_call/options.h"

/// One caller of a benchmark; used by one thread.
class Bench_Caller {
public:
  virtual ~Bench_Caller() = default;

  /// Makes a call and waits for its answer, which is left in `answer`. False with a reason in
  /// `error` when none came.
  virtual bool call(JSON_RPC_Object_var& answer, std::string& error) = 0;
};

/// Has `concurrency` threads make `bench` calls in all, and prints how many a second that were, and
/// how long they took. Threads stop at the first call that is not answered; error responses count.
/// The exit status: EXIT_ERROR when there was an error response, of which the first is printed.
int bench(const Options& options, const std::function<std::unique_ptr<Bench_Caller>()>& new_caller);
