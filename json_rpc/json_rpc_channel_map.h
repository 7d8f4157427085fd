#pragma once

#include <ace/INET_Addr.h>
#include <ace/RW_Thread_Mutex.h>

#include <map>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"

/// The live channels of the process: type -> (id -> channel), held weakly. The host registers a
/// channel when it is ready and unregisters it when it closes; both are logged and published
/// through the notify manager.
///
/// Changes all the time, under lock_; any thread may call anything. lock_ comes first of all:
/// before the notify manager's, before a channel's own. Created by the service before other threads
/// use it. Operations give 0, or -1 when the lock fails or, with errno ENOMEM, when memory does.
class JSON_RPC_EXPORT JSON_RPC_Channel_Map {
public:
  typedef int Channel_Type;
  typedef std::string Channel_ID;
  typedef std::map<Channel_ID, JSON_RPC_Channel_ptr> ID_Channel_Map;
  typedef std::map<Channel_Type, ID_Channel_Map> Type_ID_Map;
  typedef ACE_RW_Thread_Mutex Lock;

  struct Channel_Info {
    Channel_ID id;
    Channel_Type type = 0;
    ACE_INET_Addr remote_addr;
  };
  typedef std::vector<Channel_Info> Channel_Infos;

  static JSON_RPC_Channel_Map* instance();
  static void close_instance();

  JSON_RPC_Channel_Map();
  ~JSON_RPC_Channel_Map();
  JSON_RPC_Channel_Map(const JSON_RPC_Channel_Map&) = delete;
  JSON_RPC_Channel_Map& operator=(const JSON_RPC_Channel_Map&) = delete;

  /// The channel of that id; of several types that have it, the lowest. Empty when there is none or
  /// the lock fails; otherwise it may be gone all the same.
  JSON_RPC_Channel_ptr find(const Channel_ID& id) const;
  JSON_RPC_Channel_ptr find(Channel_Type type, const Channel_ID& id) const;

  /// How many channels are registered, those that have gone without a word among them.
  std::size_t size() const;

  /// Registers the channel under its type and id, in place of whichever was there.
  /// "channel.registered" is published after the unlock.
  int insert(const JSON_RPC_Channel_var& channel);

  /// Unregisters whatever stands there; announced even when nothing does.
  /// Needs no memory, but for the announcement.
  /// Calls out: "channel.unregistered" is published under lock_ (write), in all three.
  int remove(Channel_Type type, const Channel_ID& id);
  /// Unregisters that very channel, under the type and id that it has now. Another one that was
  /// registered there since stays. An empty reference is nothing to do.
  int remove(const JSON_RPC_Channel_var& channel);
  int remove(const Channel_Info& info);

  /// Appends what lives to `infos`, in (type, id) order, of that type or, for 0, of all, and
  /// unregisters what is gone. Where a remote address cannot be had, the one of the entry before is
  /// repeated. Calls out: get_remote_addr() under lock_ (read).
  int channel_infos(Channel_Infos& infos, Channel_Type type);

  /// Sends `evt` to every live channel, in (type, id) order; to that of one id; or to those of the
  /// texts among `ids`, in their order. What is not there is skipped; what send() gives is ignored.
  /// Calls out: send() under lock_ (read); it must not come back to insert() or remove(). With
  /// several channels, it can ask JSON_RPC_Fan_Out::current().
  int notify(const JSON_RPC_Object_var& evt);
  int notify(Channel_Type type, const Channel_ID& id, const JSON_RPC_Object_var& evt);
  int notify(Channel_Type type, const json_spirit::Array& ids, const JSON_RPC_Object_var& evt);

  /// Publishes "channel.registered", or "channel.unregistered" when `addr` is null. The params:
  ///   "channel_id"       text
  ///   "channel_type"     integer
  ///   "ts"               integer: seconds since the epoch
  ///   "channel_address"  only when registered: the host of `addr` without a port, as "192.0.2.7";
  ///                      "" when it is not known (vexa/addr_string.h)
  /// Always 0, also when it could not be published; errno is ENOMEM when memory was the cause.
  int notify_channel_state(const Channel_ID& id, int type, const ACE_INET_Addr* addr);

private:
  /// The entry of that very channel, or the end. Requires lock_.
  static ID_Channel_Map::iterator find(ID_Channel_Map& channels, const JSON_RPC_Channel& channel);
  /// Logs and publishes that a channel went. Requires lock_ (write), which keeps the announcements
  /// of one id in the order of their causes.
  void unregistered(Channel_Type type, const Channel_ID& id);
  /// Unregisters an entry if its channel is gone still.
  int remove_closed(const Channel_Info& info);

  Type_ID_Map map_;  // guarded by lock_; an inner map stays when it is empty
  mutable Lock lock_;
};
