#pragma once

#include <ace/RW_Thread_Mutex.h>

#include <vector>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"

/// Channels that can stand in for each other, as several connections to equal servers: a caller
/// takes one for each call. Held weakly. Changes all the time, under lock_, which is a leaf; any
/// thread may call anything. Created by the service before other threads use it.
class JSON_RPC_EXPORT JSON_RPC_Channel_Pool {
public:
  typedef std::vector<JSON_RPC_Channel_ptr> channels_type;
  typedef ACE_RW_Thread_Mutex lock_type;

  static JSON_RPC_Channel_Pool* instance();
  static void close_instance();

  JSON_RPC_Channel_Pool();
  ~JSON_RPC_Channel_Pool();
  JSON_RPC_Channel_Pool(const JSON_RPC_Channel_Pool&) = delete;
  JSON_RPC_Channel_Pool& operator=(const JSON_RPC_Channel_Pool&) = delete;

  /// Adds a member. -1 when it is gone or is a member already, when the lock fails, or with errno
  /// ENOMEM.
  int insert(const JSON_RPC_Channel_ptr& channel);

  /// Removes a member; one that is gone takes all members that are gone with it. 0 whether or not
  /// it was a member, -1 when the lock fails.
  int remove(const JSON_RPC_Channel_ptr& channel);

  /// A member, chosen anew every second: all calls within a second get the same one, which spreads
  /// load over time. It may be gone, so the caller looks (and may remove it). Empty when there is
  /// no member or the lock fails.
  JSON_RPC_Channel_ptr channel();

private:
  channels_type channels_;  // in order of insertion; guarded by lock_
  lock_type lock_;
};
