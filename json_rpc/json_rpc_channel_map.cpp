#include "json_rpc/json_rpc_channel_map.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_time.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_fan_out.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "vexa/addr_string.h"
#include "vexa/adopt.h"
#include "vexa/log.h"
#include "vexa/peer_addr_string_t.h"
#include "vexa/singleton_t.h"

// The lock can neither be upgraded nor taken twice, so channel_infos() removes what is gone after
// it has released the read lock, one entry at a time. A fan-out stands before each guard under
// which channels are made strong, here or by the notify manager: it outlives the guard.

namespace {

typedef ACE_Peer_Addr_String_T<JSON_RPC_Channel> Peer_Addr_String;

/// Runs `change`, which may allocate; its result, or -1 with errno ENOMEM.
template <typename Change>
int allocating(Change change) {
  try {
    return change();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

json_spirit::Object state_params(const std::string& id, int type, const ACE_INET_Addr* addr) {
  json_spirit::Object params;
  params["channel_id"] = id;
  params["channel_type"] = type;
  params["ts"] = ACE_OS::time(nullptr);
  if (addr != nullptr) params["channel_address"] = ACE_Addr_String(*addr, false).c_str();
  return params;
}

/// The channel's id; false with errno ENOMEM when there is no memory for it.
bool id_of(const JSON_RPC_Channel& channel, std::string& id) {
  errno = 0;
  id = channel.id();
  return !id.empty() || errno != ENOMEM;
}

}  // namespace

JSON_RPC_Channel_Map* JSON_RPC_Channel_Map::instance() {
  return Singleton_T<JSON_RPC_Channel_Map>::instance();
}
void JSON_RPC_Channel_Map::close_instance() { Singleton_T<JSON_RPC_Channel_Map>::close(); }

JSON_RPC_Channel_Map::JSON_RPC_Channel_Map() = default;
JSON_RPC_Channel_Map::~JSON_RPC_Channel_Map() = default;

JSON_RPC_Channel_ptr JSON_RPC_Channel_Map::find(const Channel_ID& id) const {
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, JSON_RPC_Channel_ptr());
  for (const Type_ID_Map::value_type& of_type : map_) {
    const ID_Channel_Map::const_iterator it = of_type.second.find(id);
    if (it != of_type.second.end()) return it->second;
  }
  return JSON_RPC_Channel_ptr();
}

JSON_RPC_Channel_ptr JSON_RPC_Channel_Map::find(Channel_Type type, const Channel_ID& id) const {
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, JSON_RPC_Channel_ptr());
  const Type_ID_Map::const_iterator of_type = map_.find(type);
  if (of_type == map_.end()) return JSON_RPC_Channel_ptr();
  const ID_Channel_Map::const_iterator it = of_type->second.find(id);
  return it != of_type->second.end() ? it->second : JSON_RPC_Channel_ptr();
}

int JSON_RPC_Channel_Map::insert(const JSON_RPC_Channel_var& channel) {
  VEXA_CHECK(channel.get() != nullptr, "channel.get() is NULL", -1);
  Channel_ID id;
  const Channel_Type type = channel->type();
  if (!id_of(*channel, id)) return -1;
  const int stored = allocating([&] {
    ACE_WRITE_GUARD_RETURN(Lock, guard, lock_, -1);
    map_[type].insert_or_assign(id, channel);
    return 0;
  });
  if (stored != 0) return -1;
  if (ACE_LOG_MSG->log_priority_enabled(LM_INFO)) {
    const Peer_Addr_String peer(channel.get(), true, true);
    VEXA_INFO("Channel(type: %d) %s(%s) is registered.\n", type, id.c_str(), peer.c_str());
  }
  ACE_INET_Addr addr;
  if (channel->get_original_addr(addr) != 0) VEXA_WARNING("Failed to get address of peer.\n");
  notify_channel_state(id, type, &addr);
  return 0;
}

int JSON_RPC_Channel_Map::remove(Channel_Type type, const Channel_ID& id) {
  JSON_RPC_Fan_Out told;
  ACE_WRITE_GUARD_RETURN(Lock, guard, lock_, -1);
  const Type_ID_Map::iterator of_type = map_.find(type);
  if (of_type != map_.end()) of_type->second.erase(id);
  unregistered(type, id);
  return 0;
}

int JSON_RPC_Channel_Map::remove(const JSON_RPC_Channel_var& channel) {
  if (channel.null()) return 0;
  JSON_RPC_Fan_Out told;
  ACE_WRITE_GUARD_RETURN(Lock, guard, lock_, -1);
  const Type_ID_Map::iterator of_type = map_.find(channel->type());
  if (of_type == map_.end()) return 0;
  const ID_Channel_Map::iterator it = find(of_type->second, *channel);
  if (it == of_type->second.end()) return 0;
  const ID_Channel_Map::node_type entry = of_type->second.extract(it);
  unregistered(of_type->first, entry.key());
  return 0;
}

JSON_RPC_Channel_Map::ID_Channel_Map::iterator JSON_RPC_Channel_Map::find(
    ID_Channel_Map& channels, const JSON_RPC_Channel& channel) {
  const auto is_it = [&channel](const ID_Channel_Map::value_type& entry) {
    return entry.second.unsafe_get() == &channel;
  };
  Channel_ID id;
  // A channel that goes is unlisted also when there is no memory for its id.
  if (!id_of(channel, id)) return std::find_if(channels.begin(), channels.end(), is_it);
  const ID_Channel_Map::iterator it = channels.find(id);
  return it != channels.end() && is_it(*it) ? it : channels.end();
}

int JSON_RPC_Channel_Map::remove(const Channel_Info& info) { return remove(info.type, info.id); }

int JSON_RPC_Channel_Map::channel_infos(Channel_Infos& infos, Channel_Type type) {
  Channel_Infos closed;
  const int listed = allocating([&] {
    JSON_RPC_Fan_Out asked;
    ACE_READ_GUARD_RETURN(Lock, guard, lock_, -1);
    Channel_Info info;  // Kept: one for all, so an address that cannot be had repeats the last one
    for (const Type_ID_Map::value_type& of_type : map_) {
      if (type != 0 && of_type.first != type) continue;
      info.type = of_type.first;
      for (const ID_Channel_Map::value_type& entry : of_type.second) {
        info.id = entry.first;
        JSON_RPC_Channel* const channel = asked.reach(entry.second);
        if (channel == nullptr) {
          VEXA_WARNING("JSON-RPC channel %s is gone.\n", info.id.c_str());
          closed.push_back(info);
        } else {
          channel->get_remote_addr(info.remote_addr);
          infos.push_back(info);
        }
      }
    }
    return 0;
  });
  if (listed != 0) return -1;
  for (const Channel_Info& info : closed) remove_closed(info);
  return 0;
}

int JSON_RPC_Channel_Map::notify(const JSON_RPC_Object_var& evt) {
  JSON_RPC_Fan_Out fan_out(evt);
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, -1);
  for (const Type_ID_Map::value_type& of_type : map_) {
    for (const ID_Channel_Map::value_type& entry : of_type.second) fan_out.send(entry.second);
  }
  return 0;
}

int JSON_RPC_Channel_Map::notify(Channel_Type type, const Channel_ID& id,
                                 const JSON_RPC_Object_var& evt) {
  JSON_RPC_Fan_Out fan_out(evt);
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, -1);
  const Type_ID_Map::const_iterator of_type = map_.find(type);
  if (of_type == map_.end()) return 0;
  const ID_Channel_Map::const_iterator it = of_type->second.find(id);
  if (it == of_type->second.end()) return 0;
  fan_out.send(it->second);
  return 0;
}

int JSON_RPC_Channel_Map::notify(Channel_Type type, const json_spirit::Array& ids,
                                 const JSON_RPC_Object_var& evt) {
  JSON_RPC_Fan_Out fan_out(evt);
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, -1);
  const Type_ID_Map::const_iterator of_type = map_.find(type);
  if (of_type == map_.end()) return 0;
  for (const json_spirit::Value& id : ids) {
    if (id.type() != json_spirit::str_type) continue;
    const ID_Channel_Map::const_iterator it = of_type->second.find(id.get_str());
    if (it != of_type->second.end()) fan_out.send(it->second);
  }
  return 0;
}

int JSON_RPC_Channel_Map::notify_channel_state(const Channel_ID& id, int type,
                                               const ACE_INET_Addr* addr) {
  // Kept: registering does not fail because nobody could be told.
  allocating([&] {
    JSON_RPC_Object_var message;
    JSON_RPC_Request* const event = new (std::nothrow) JSON_RPC_Request;
    if (!vexa::adopt(message, static_cast<JSON_RPC_Object*>(event))) return -1;
    event->type = JSON_RPC_Object::TYPE_NOTIFY;
    event->method = addr != nullptr ? "channel.registered" : "channel.unregistered";
    event->params = state_params(id, type, addr);
    return JSON_RPC_Notify_Manager::instance()->notify(event->method, message);
  });
  return 0;
}

void JSON_RPC_Channel_Map::unregistered(Channel_Type type, const Channel_ID& id) {
  VEXA_INFO("Channel(type: %d) %s is unregistered.\n", type, id.c_str());
  notify_channel_state(id, type, nullptr);
}

int JSON_RPC_Channel_Map::remove_closed(const Channel_Info& info) {
  JSON_RPC_Fan_Out told;
  ACE_WRITE_GUARD_RETURN(Lock, guard, lock_, -1);
  const Type_ID_Map::iterator of_type = map_.find(info.type);
  if (of_type == map_.end()) return 0;
  const ID_Channel_Map::iterator it = of_type->second.find(info.id);
  // Since the read lock was released another channel can have taken the place, or the host can have
  // unregistered the one that went.
  if (it == of_type->second.end() || !it->second.null()) return 0;
  of_type->second.erase(it);
  unregistered(info.type, info.id);
  return 0;
}

std::size_t JSON_RPC_Channel_Map::size() const {
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, 0);
  std::size_t size = 0;
  for (const auto& of_type : map_) size += of_type.second.size();
  return size;
}
