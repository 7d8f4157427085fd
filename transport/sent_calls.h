#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "json_rpc/json_rpc_response_map.h"
#include "json_spirit/json_spirit_value.h"

namespace transport {

/// The ids of the requests that a channel has sent and that were not answered yet: when the channel
/// closes, whoever waits for them is told. Any thread.
class Sent_Calls {
public:
  /// A GENERATED call's id is left in the response map by whoever gives up waiting for it.
  enum Kind { OBJECT, GENERATED };
  typedef std::unordered_map<json_spirit::Value, Kind, json_spirit::value_hash> Ids;

  /// A request is about to be sent. False when the channel has closed.
  bool note(const json_spirit::Value& id, Kind kind) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (closed_) return false;
    if (ids_.size() >= crowd_) {
      prune();
      crowd_ = std::max(first_crowd, 2 * ids_.size());
    }
    ids_.insert_or_assign(id, kind);
    return true;
  }

  /// It was answered, or could not be sent. Whether it was noted, and then as what.
  bool take(const json_spirit::Value& id, Kind& kind) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto it = ids_.find(id);
    if (it == ids_.end()) return false;
    kind = it->second;
    ids_.erase(it);
    return true;
  }

  bool empty() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return ids_.empty();
  }

  /// Forgets those for which nobody waits any more.
  void forget_given_up() {
    const std::lock_guard<std::mutex> guard(mutex_);
    prune();
  }

  /// No request is sent any more: those that were not answered.
  Ids close() {
    const std::lock_guard<std::mutex> guard(mutex_);
    closed_ = true;
    return std::exchange(ids_, Ids());
  }

private:
  static constexpr std::size_t first_crowd = 1024;

  /// Requires mutex_.
  void prune() {
    for (auto it = ids_.begin(); it != ids_.end();) {
      const bool waits = JSON_RPC_Response_Map::instance()->contains(it->first);
      it = waits ? std::next(it) : ids_.erase(it);
    }
  }

  mutable std::mutex mutex_;         // before the response map's lock
  Ids ids_;                          // guarded by mutex_
  bool closed_ = false;              // the same
  std::size_t crowd_ = first_crowd;  // the same: so many are worth looking through
};

}  // namespace transport
