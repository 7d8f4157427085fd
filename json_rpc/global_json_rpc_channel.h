#pragma once

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"

/// The process's default channel: it receives every published notification, and calls that name no
/// channel go over it. Held weakly, so the host keeps it alive. There is no lock: the host sets it
/// once, before other threads read it. Usable until the process is gone, static destructors
/// included.
class JSON_RPC_EXPORT Global_JSON_RPC_Channel {
public:
  /// Empty when none was set, or when the one that was set is gone.
  static JSON_RPC_Channel_var instance();

  /// Replaces the default channel; an empty reference clears it.
  static void instance(const JSON_RPC_Channel_ptr& channel);

private:
  static JSON_RPC_Channel_ptr& channel_;
};
