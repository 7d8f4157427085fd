#include "json_rpc/json_rpc_channel_pool.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_stdlib.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>

#include "json_rpc/json_rpc_channel.h"
#include "vexa/singleton_t.h"

JSON_RPC_Channel_Pool* JSON_RPC_Channel_Pool::instance() {
  return Singleton_T<JSON_RPC_Channel_Pool>::instance();
}
void JSON_RPC_Channel_Pool::close_instance() { Singleton_T<JSON_RPC_Channel_Pool>::close(); }

JSON_RPC_Channel_Pool::JSON_RPC_Channel_Pool() = default;
JSON_RPC_Channel_Pool::~JSON_RPC_Channel_Pool() = default;

int JSON_RPC_Channel_Pool::insert(const JSON_RPC_Channel_ptr& channel) {
  const JSON_RPC_Channel_var alive(channel);
  if (alive.null()) return -1;
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  for (const JSON_RPC_Channel_ptr& member : channels_) {
    if (JSON_RPC_Channel::same(member, alive)) return -1;
  }
  try {
    channels_.push_back(channel);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
  return 0;
}

int JSON_RPC_Channel_Pool::remove(const JSON_RPC_Channel_ptr& channel) {
  const JSON_RPC_Channel_var alive(channel);
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  const auto goes = [&alive](const JSON_RPC_Channel_ptr& member) {
    return alive.null() ? member.null() : JSON_RPC_Channel::same(member, alive);
  };
  channels_.erase(std::remove_if(channels_.begin(), channels_.end(), goes), channels_.end());
  return 0;
}

JSON_RPC_Channel_ptr JSON_RPC_Channel_Pool::channel() {
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, JSON_RPC_Channel_ptr());
  if (channels_.empty()) return JSON_RPC_Channel_ptr();
  if (channels_.size() == 1) return channels_.front();
  // Kept: seeded by the clock at every call, so that the choice changes with the second alone.
  unsigned int seed = static_cast<unsigned int>(std::time(nullptr));
  const unsigned int drawn = static_cast<unsigned int>(ACE_OS::rand_r(&seed));
  return channels_[drawn % channels_.size()];
}
