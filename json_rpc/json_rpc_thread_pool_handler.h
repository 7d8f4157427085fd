#pragma once

#include <cstddef>
#include <memory>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_handler.h"

class Thread_Pool_Helper;

/// Moves every call onto the pool that all handlers of this kind share. handle_object_i() runs on
/// several workers at once, so it must be reentrant. The service starts and stops the pool; no lock
/// guards it, so no other thread but the pool's own uses it during activate() and deactivate().
class JSON_RPC_EXPORT JSON_RPC_Thread_Pool_Handler : public JSON_RPC_Handler {
public:
  /// Starts the pool, in place of an earlier one, whose running calls end first.
  /// @param name of the workers
  /// @param high_water_mark most calls that wait at once, at least `low_water_mark`
  /// @param low_water_mark above 0
  /// 0, or -1: a bad argument is logged as a broken contract and, like ENOMEM, leaves an earlier
  /// pool running; when a thread cannot be started (EAGAIN) there is no pool.
  static int activate(const char* name, std::size_t threads, std::size_t high_water_mark,
                      std::size_t low_water_mark);

  /// Stops the pool: running calls end first, waiting ones are dropped, and what a running call
  /// queues meanwhile is refused (ESHUTDOWN). Never from within a call. Always 0.
  static int deactivate();

  /// Whether there is a pool; to be asked where none is no fault.
  static bool is_active();

  /// Calls that the pool has accepted and not finished; 0 means that no handler runs on it.
  static std::size_t busy();
  /// Calls that wait in the queue, and those that had no room there since the process started. Any
  /// thread, while the pool is not changed.
  static std::size_t waiting();
  static std::size_t refusals();

  /// Queues the call, never blocking. 0, or -1 with errno: EWOULDBLOCK when the queue is full,
  /// ENOMEM, ESHUTDOWN without a pool. Sends nothing to the peer in either case.
  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) override;

  /// The work, on a worker. The channel may have gone meanwhile. The result goes nowhere; an
  /// exception is logged.
  virtual int handle_object_i(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) = 0;

private:
  // Stands for a pointer that is never destroyed: the service may be closed after the destructors
  // of static objects have run.
  static std::unique_ptr<Thread_Pool_Helper>& thread_pool_;
};
