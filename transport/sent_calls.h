#pragma once

#include <mutex>
#include <unordered_map>
#include <utility>

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
    if (!closed_) ids_.insert_or_assign(id, kind);
    return !closed_;
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

  /// No request is sent any more: those that were not answered.
  Ids close() {
    const std::lock_guard<std::mutex> guard(mutex_);
    closed_ = true;
    return std::exchange(ids_, Ids());
  }

private:
  mutable std::mutex mutex_;  // a leaf
  Ids ids_;                   // guarded by mutex_
  bool closed_ = false;       // the same
};

}  // namespace transport
