#pragma once

#include <ace/Time_Value.h>

#include <cstddef>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_handler.h"

/// Runs every call on a detached thread of its own, so that a slow method holds no reading thread.
/// Any number may run at once: handle_object_i() must be reentrant, and the handler must outlive
/// the calls that it started.
class JSON_RPC_EXPORT JSON_RPC_Thread_Handler : public JSON_RPC_Handler {
public:
  /// Starts the call. 0 at once, whatever becomes of it; -1 with errno when the channel is gone
  /// (EPIPE), memory runs out (ENOMEM) or no thread can be started (EAGAIN).
  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) override;

  /// The work, on the call's thread ("JSONRPCSolo"). The channel stays alive until it returns. The
  /// result goes nowhere; an exception is logged.
  virtual int handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var obj) = 0;

  /// How many calls, of all handlers, have a thread now.
  static std::size_t running();

  /// Waits until no call is left, at most for `limit` (a duration). Whether none is left. Never
  /// from within a call. ACE still has a few steps to do on a thread whose call has ended: a
  /// process that is about to exit also calls ACE_Thread_Manager::instance()->wait().
  static bool wait_all(const ACE_Time_Value& limit);

private:
  struct Thread_Params;

  static void* run(void* params);
};
