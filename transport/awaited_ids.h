#pragma once

#include <chrono>
#include <cstddef>
#include <unordered_map>
#include <vector>

#include "json_spirit/json_spirit_value.h"

namespace transport {

/// What is counted of a request when it is answered.
struct Awaited_Call {
  std::size_t method = 0;  ///< index of the metrics
  std::chrono::steady_clock::time_point arrived;
};

/// The ids of the requests of one channel that await an answer, and how many requests of each id,
/// or others that answer for one, still exist. A peer that uses an id for several requests at once
/// is owed as many answers; which of them an answer belongs to cannot be told, so they are counted.
/// No lock: the outbox guards it.
class Awaited_Ids {
  struct Counts {
    std::size_t awaited = 0;
    std::size_t alive = 0;
    Awaited_Call call;
  };

public:
  /// A request with this id has come.
  void add(const json_spirit::Value& id, const Awaited_Call& call = Awaited_Call()) {
    Counts& counts = ids_[id];
    ++counts.awaited;
    ++counts.alive;
    counts.call = call;
    ++awaited_;
  }

  /// Somebody else answers for a request with this id from now on, until gone(); false when the id
  /// awaits no answer.
  bool share(const json_spirit::Value& id) {
    const auto it = ids_.find(id);
    if (it == ids_.end() || it->second.awaited == 0) return false;
    ++it->second.alive;
    return true;
  }

  typedef std::unordered_map<json_spirit::Value, Counts, json_spirit::value_hash> Map;
  /// Where an answer belongs, until the next change.
  typedef Map::iterator Place;

  /// Whether the id awaits an answer.
  bool awaits(const json_spirit::Value& id) const {
    const auto it = ids_.find(id);
    return it != ids_.end() && it->second.awaited > 0;
  }

  /// Where an answer to `id` belongs; false when it awaits none.
  bool find(const json_spirit::Value& id, Place& place) {
    place = ids_.find(id);
    return place != ids_.end() && place->second.awaited > 0;
  }

  /// An answer goes out: the request that came last with its id. Needs no memory.
  Awaited_Call settle(Place place) {
    const Awaited_Call call = place->second.call;
    --place->second.awaited;
    --awaited_;
    erase_empty(place);
    return call;
  }

  /// A request with this id exists no longer; whether that leaves an answer which nobody will give.
  bool gone(const json_spirit::Value& id) {
    const auto it = ids_.find(id);
    if (it == ids_.end() || it->second.alive == 0) return false;
    --it->second.alive;
    const bool unanswered = it->second.awaited > it->second.alive;
    erase_empty(it);
    return unanswered;
  }

  /// How many answers are awaited.
  std::size_t size() const { return awaited_; }

  /// Their ids, each as often as it awaits one.
  std::vector<json_spirit::Value> all() const {
    std::vector<json_spirit::Value> ids;
    for (const auto& entry : ids_) ids.insert(ids.end(), entry.second.awaited, entry.first);
    return ids;
  }

  void clear() {
    ids_.clear();
    awaited_ = 0;
  }

private:
  void erase_empty(Map::iterator it) {
    if (it->second.awaited == 0 && it->second.alive == 0) ids_.erase(it);
  }

  Map ids_;
  std::size_t awaited_ = 0;
};

}  // namespace transport
