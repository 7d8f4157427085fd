#pragma once

#include <map>
#include <utility>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_spirit/json_spirit_value.h"

/// The requests that a channel forwarded and that wait for their answers: forward id -> (the
/// requester's id, the requester). The channel implements put_forward_entry() with put() and
/// get_forward_entry() with get(), and calls clear() when it closes.
///
/// Takes no lock: the owner serialises all calls. clear() sends over other channels, so no lock
/// that their send() could need is held around it.
class JSON_RPC_EXPORT JSON_RPC_Forward_Map {
public:
  typedef int key_type;
  typedef json_spirit::Value id_type;
  typedef std::pair<id_type, JSON_RPC_Channel_ptr> data_type;
  typedef std::map<key_type, data_type> map_type;

  /// The message of the error that a requester gets when its answer will not come.
  static constexpr const char* CLOSED = "Internal error, forwarder is closed.";

  JSON_RPC_Forward_Map();
  /// Sends nothing: clear() first when the requesters shall know.
  ~JSON_RPC_Forward_Map();
  JSON_RPC_Forward_Map(const JSON_RPC_Forward_Map&) = delete;
  JSON_RPC_Forward_Map& operator=(const JSON_RPC_Forward_Map&) = delete;

  /// Records a forwarded request. The forward id: 1, 2, 3 and so on, wrapping past the largest int,
  /// where it replaces an entry that still has it. -1 with errno ENOMEM when out of memory.
  int put(const id_type& id, const JSON_RPC_Channel_ptr& channel);

  /// Takes the entry of `key` out. 0; or -1, with `data` untouched, when there is none.
  int get(key_type key, data_type& data);

  /// Takes out the entry that was put in first (after a wrap, the lowest). 0; or -1, with both
  /// untouched, when there is none.
  int take_first(key_type& key, data_type& data);

  /// Whether nothing is pending.
  bool empty() const { return map_.empty(); }
  std::size_t size() const { return map_.size(); }

  /// Answers all that is pending with error -32603, in the order in which it was forwarded, and
  /// forgets it. A requester that is gone costs an error line. Ids go on from the last one.
  void clear();
  /// What clear() does with an entry.
  static void fail_back(key_type forward_id, const data_type& entry);

private:
  int forward_id_;  // the last one given out
  map_type map_;
};
