#include "json_rpc/json_rpc_response_map.h"

#include <ace/Guard_T.h>

#include <cerrno>
#include <new>

#include "vexa/singleton_t.h"

JSON_RPC_Response_Map* JSON_RPC_Response_Map::instance() {
  return Singleton_T<JSON_RPC_Response_Map>::instance();
}
void JSON_RPC_Response_Map::close_instance() { Singleton_T<JSON_RPC_Response_Map>::close(); }

JSON_RPC_Response_Map::JSON_RPC_Response_Map() = default;
// A handler's destructor may look here again: it finds an empty map, not one that is half gone.
JSON_RPC_Response_Map::~JSON_RPC_Response_Map() { clear(); }

JSON_RPC_Handler_var JSON_RPC_Response_Map::find(const json_spirit::Value& id) const {
  ACE_READ_GUARD_RETURN(ACE_RW_Thread_Mutex, guard, lock_, JSON_RPC_Handler_var());
  const map_type::const_iterator it = map_.find(id);
  return it == map_.end() ? JSON_RPC_Handler_var() : it->second;
}

bool JSON_RPC_Response_Map::contains(const json_spirit::Value& id) const {
  ACE_READ_GUARD_RETURN(ACE_RW_Thread_Mutex, guard, lock_, false);
  return map_.find(id) != map_.end();
}

int JSON_RPC_Response_Map::insert(const json_spirit::Value& id,
                                  const JSON_RPC_Handler_var& handler) {
  ACE_WRITE_GUARD_RETURN(ACE_RW_Thread_Mutex, guard, lock_, -1);
  try {
    return map_.emplace(id, handler).second ? 0 : -1;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

int JSON_RPC_Response_Map::remove(const json_spirit::Value& id) {
  map_type::node_type dropped;  // declared before the guard, so destroyed after the unlock
  ACE_WRITE_GUARD_RETURN(ACE_RW_Thread_Mutex, guard, lock_, -1);
  const map_type::const_iterator it = map_.find(id);
  if (it == map_.end()) return -1;
  dropped = map_.extract(it);
  return 0;
}

void JSON_RPC_Response_Map::clear() {
  map_type dropped;  // declared before the guard, so destroyed after the unlock
  ACE_WRITE_GUARD(ACE_RW_Thread_Mutex, guard, lock_);
  dropped.swap(map_);
}
