#pragma once

#include <ace/RW_Thread_Mutex.h>

#include <map>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_spirit/json_spirit_value.h"

/// The calls of this process that wait for an answer: request id -> handler of the answer.
/// Ids compare as JSON values, so 7 and "7" are two keys. Handlers are shared: one that find() gave
/// out outlives its removal. Any thread may call anything. lock_ is a leaf.
class JSON_RPC_EXPORT JSON_RPC_Response_Map {
public:
  /// The one of this process; created by the first call, which must come before other threads do.
  static JSON_RPC_Response_Map* instance();
  /// Destroys it and lets go of all its handlers; a later instance() is a new, empty one.
  static void close_instance();

  JSON_RPC_Response_Map();
  ~JSON_RPC_Response_Map();
  JSON_RPC_Response_Map(const JSON_RPC_Response_Map&) = delete;
  JSON_RPC_Response_Map& operator=(const JSON_RPC_Response_Map&) = delete;

  /// The handler of `id`, left in place; a null handle when there is none or the lock fails.
  JSON_RPC_Handler_var find(const json_spirit::Value& id) const;

  /// Whether there is one, without a share in it.
  bool contains(const json_spirit::Value& id) const;

  /// 0, or -1 when `id` is taken (its handler stays), the lock fails or memory runs out (ENOMEM).
  int insert(const json_spirit::Value& id, const JSON_RPC_Handler_var& handler);

  /// 0, or -1 when there is no such id or the lock fails.
  int remove(const json_spirit::Value& id);

  /// Removes all; nothing when the lock fails.
  void clear();

private:
  typedef std::map<json_spirit::Value, JSON_RPC_Handler_var, json_spirit::value_lesser> map_type;

  map_type map_;  // guarded by lock_
  mutable ACE_RW_Thread_Mutex lock_;
};
