#pragma once

#include <cstddef>
#include <unordered_set>
#include <vector>

#include "json_spirit/json_spirit_value.h"

/// The ids of the requests of one channel that await an answer. A peer that uses an id twice at once
/// is owed two answers. No lock: the outbox guards it.
class Awaited_Ids {
 public:
  void add(const json_spirit::Value& id) { ids_.insert(id); }

  /// Takes one request of that id out; false when none awaits an answer.
  bool settle(const json_spirit::Value& id) {
    const auto it = ids_.find(id);
    if (it == ids_.end()) return false;
    ids_.erase(it);
    return true;
  }

  std::size_t size() const { return ids_.size(); }

  std::vector<json_spirit::Value> all() const { return {ids_.begin(), ids_.end()}; }
  void clear() { ids_.clear(); }

 private:
  std::unordered_multiset<json_spirit::Value, json_spirit::value_hash> ids_;
};
