#pragma once

#include <ace/Service_Object.h>

#include <cstddef>

#include "json_rpc/json_rpc_export.h"

/// The library's entry point, loaded by ACE's service configurator through _make_JSON_RPC_Service:
/// creates the process-wide registries, fills them from the configuration files that its options
/// name, and starts the shared thread pool. One at a time in a process.
///
///     -j, --jsonrpc FILE                  records of method handlers
///     -f, --jsonrpc-params-filter FILE    records of params filters
///     -r, --restful FILE                  records of RESTful handlers
///     -n, --jsonrpc-thread-number N       workers of the pool; 0, the default: no pool
///     -h, --jsonrpc-thread-queue-hwm N    most calls that wait for a worker (1024)
///     -l, --jsonrpc-thread-queue-lwm N    low water mark of that queue (512)
///
/// Options may repeat. Files are read in the order in which they are named; the first of a name
/// wins.
class JSON_RPC_EXPORT JSON_RPC_Service : public ACE_Service_Object {
public:
  JSON_RPC_Service();
  ~JSON_RPC_Service() override;

  /// Called before other threads exist. `argv` has no program name in front and is put in another
  /// order. Files that cannot be read, bad records and unknown options are logged and counted, no
  /// more. -1 only when the pool cannot be started; then nothing is left of what was created.
  int init(int argc, char** argv) override;

  /// Stops the pool, waits up to 10 seconds for calls that have a thread of their own, and closes
  /// the registries. When such a call still runs the method handlers stay: better a leak than a
  /// handler that is destroyed under its call. Always 0.
  int fini() override;

  /// Reads the options, and at once each file that they name. Always 0.
  int parse_args(int argc, char** argv);

  /// Creates the process-wide registries, so that none is first created by two threads at once.
  /// init() does; a program without the service calls this before it starts threads.
  static void create_registries();

  /// Of the last init() in this process: records that failed, files that could not be read to their
  /// end, and options that are unknown or lack their argument. Any thread.
  static std::size_t failures();

private:
  std::size_t threads_ = 0;
  std::size_t high_water_mark_ = 1024;  // calls
  std::size_t low_water_mark_ = 512;    // calls
};

/// The factory and the destroyer, which the factory stores where `gobbler` points, if anywhere.
extern "C" JSON_RPC_EXPORT ACE_Service_Object* _make_JSON_RPC_Service(void (**gobbler)(void*));
extern "C" JSON_RPC_EXPORT void _gobble_JSON_RPC_Service(void* p);
