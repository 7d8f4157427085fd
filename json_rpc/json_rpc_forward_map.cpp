#include "json_rpc/json_rpc_forward_map.h"

#include <cerrno>
#include <new>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_object.h"
#include "vexa/log.h"

void JSON_RPC_Forward_Map::fail_back(key_type forward_id, const data_type& entry) {
  const JSON_RPC_Channel_var requester(entry.second);
  if (requester.null()) {
    try {
      VEXA_ERROR("Abort sending JSON-RPC error, requester (id=%s, forward_id=%d) is gone\n",
                 JSON_RPC_Id(entry.first).c_str(), forward_id);
    } catch (const std::bad_alloc&) {
      errno = ENOMEM;  // the id's text was too long for what is left; the others are answered still
    }
    return;
  }
  requester->send_error(JSON_RPC_INTERNAL_ERROR, entry.first, CLOSED, json_spirit::Value::null);
}

JSON_RPC_Forward_Map::JSON_RPC_Forward_Map() : forward_id_(0) {}

JSON_RPC_Forward_Map::~JSON_RPC_Forward_Map() = default;

int JSON_RPC_Forward_Map::put(const id_type& id, const JSON_RPC_Channel_ptr& channel) {
  try {
    data_type data(id, channel);
    // Never goes back, not even in clear(): a late answer must not reach the requester of a new id.
    // Unsigned, because it may wrap.
    forward_id_ = static_cast<int>(static_cast<unsigned>(forward_id_) + 1);
    map_.insert_or_assign(forward_id_, std::move(data));
    return forward_id_;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

int JSON_RPC_Forward_Map::get(key_type key, data_type& data) {
  const map_type::iterator it = map_.find(key);
  if (it == map_.end()) return -1;
  data.first = std::move(it->second.first);
  data.second = it->second.second;
  map_.erase(it);
  return 0;
}

int JSON_RPC_Forward_Map::take_first(key_type& key, data_type& data) {
  if (map_.empty()) return -1;
  key = map_.begin()->first;
  return get(key, data);
}

void JSON_RPC_Forward_Map::clear() {
  map_type pending;  // taken out first: what a requester's send() does cannot disturb the walk
  pending.swap(map_);
  for (const map_type::value_type& entry : pending) fail_back(entry.first, entry.second);
}
