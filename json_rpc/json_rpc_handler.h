#pragma once

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Refcounted_Auto_Ptr.h>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"
#include "vexa/atomic_rep_t.h"

/// Serves a method, or waits for a response. One object serves all calls of its method, on several
/// reading threads at once, so it must be reentrant.
class JSON_RPC_EXPORT JSON_RPC_Handler {
public:
  JSON_RPC_Handler() = default;
  JSON_RPC_Handler(const JSON_RPC_Handler&) = delete;
  JSON_RPC_Handler& operator=(const JSON_RPC_Handler&) = delete;
  virtual ~JSON_RPC_Handler();

  /// Called once after the factory, with the words of the configuration record's params. -1 (only)
  /// refuses the record.
  virtual int init(int argc, char** argv);

  /// Not called by the registries: destruction goes straight to the gobbler.
  virtual int fini();

  /// Handles a message that `channel` read, on its reading thread. A request is answered through
  /// the channel, now or later; a handler that answers later keeps `obj` until it has. A
  /// notification is never answered. 0 when the message was taken, -1 otherwise (errno EWOULDBLOCK:
  /// try again later).
  virtual int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) = 0;

  /// Whether the dispatcher leaves calls of this handler out of the debug log.
  bool silent() const { return silent_; }

protected:
  bool silent_ = false;
};

template <>
class ACE_Refcounted_Auto_Ptr_Rep<JSON_RPC_Handler, ACE_Recursive_Thread_Mutex>
    : public vexa::Atomic_Rep_T<JSON_RPC_Handler> {
public:
  using Atomic_Rep_T::Atomic_Rep_T;
  JSON_RPC_EXPORT static ACE_Refcounted_Auto_Ptr_Rep* none() noexcept;
};

/// The shared handle of a handler; the response map holds these.
typedef ACE_Refcounted_Auto_Ptr<JSON_RPC_Handler, ACE_Recursive_Thread_Mutex> JSON_RPC_Handler_var;
