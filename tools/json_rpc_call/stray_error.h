#pragma once

#include <memory>

#include "json_rpc/json_rpc_object.h"

/// Gets the error that a peer sends under no id, where it could not make out what the request was:
/// a message that is too large, or no message for it. Waits in the response map while it lives.
class Stray_Error {
public:
  Stray_Error();
  ~Stray_Error();
  Stray_Error(const Stray_Error&) = delete;
  Stray_Error& operator=(const Stray_Error&) = delete;

  /// The last one; null when none came.
  JSON_RPC_Object_var get() const;

private:
  class Handler;
  struct State;

  const std::shared_ptr<State> state_;
};
