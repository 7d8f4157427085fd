#include "json_rpc/json_rpc_notify_manager.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iterator>
#include <new>
#include <utility>

#include "json_rpc/global_json_rpc_channel.h"
#include "json_rpc/json_rpc_fan_out.h"
#include "vexa/singleton_t.h"

// Subscriptions come from handlers and go with their channels, on any thread; notifications are
// published by every reading thread and by the channel map, on its write lock. Strong references
// are made before the lock or by a fan-out that stands before it, and dropped after it.

namespace {

/// Which of two channels comes first: -1, 0 or 1. An entry names its own even when that is gone.
int order(const JSON_RPC_Channel* left, const JSON_RPC_Channel* right) {
  const std::less<const JSON_RPC_Channel*> before;
  return before(left, right) ? -1 : before(right, left) ? 1 : 0;
}

}  // namespace

JSON_RPC_Notify_Manager* JSON_RPC_Notify_Manager::instance() {
  return Singleton_T<JSON_RPC_Notify_Manager>::instance();
}
void JSON_RPC_Notify_Manager::close_instance() { Singleton_T<JSON_RPC_Notify_Manager>::close(); }

JSON_RPC_Notify_Manager::JSON_RPC_Notify_Manager() = default;
JSON_RPC_Notify_Manager::~JSON_RPC_Notify_Manager() = default;

int JSON_RPC_Notify_Manager::subscribe(const JSON_RPC_Channel_ptr& subscriber,
                                       const subjects_type& subjects) {
  map_type added;
  index_type indexed;
  try {
    for (const subject_type& subject : subjects) indexed.insert(added.emplace(subject, subscriber));
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  map_.merge(added);  // moves the nodes, so the iterators in the index stay good
  by_channel_.merge(indexed);
  return 0;
}

int JSON_RPC_Notify_Manager::unsubscribe(const JSON_RPC_Channel_ptr& subscriber) {
  const JSON_RPC_Channel_var alive(subscriber);
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  if (alive.null()) {
    unsubscribe_closed_channels();
  } else {
    unsubscribe_channel(alive, nullptr);
  }
  return 0;
}

int JSON_RPC_Notify_Manager::unsubscribe(const JSON_RPC_Channel_ptr& subscriber,
                                         const subjects_type& subjects) {
  const JSON_RPC_Channel_var alive(subscriber);
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  if (alive.null()) {
    unsubscribe_closed_channels();
    return 0;
  }
  for (const subject_type& subject : subjects) unsubscribe_channel(alive, &subject);
  return 0;
}

int JSON_RPC_Notify_Manager::unsubscribe(const subject_type& subject) {
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  return unsubscribe_subject(subject);
}

int JSON_RPC_Notify_Manager::unsubscribe(const subjects_type& subjects) {
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  for (const subject_type& subject : subjects) unsubscribe_subject(subject);
  return 0;
}

bool JSON_RPC_Notify_Manager::subscribed(const JSON_RPC_Channel_ptr& subscriber) const {
  const JSON_RPC_Channel_var alive(subscriber);
  if (alive.null()) return false;
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, false);
  const auto own = by_channel_.equal_range(Wanted{alive.get(), nullptr});
  return std::any_of(own.first, own.second, [&alive](const iterator& entry) {
    return JSON_RPC_Channel::same(entry->second, alive);
  });
}

std::size_t JSON_RPC_Notify_Manager::size() const {
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, 0);
  return map_.size();
}

int JSON_RPC_Notify_Manager::notify(subject_type subject, const JSON_RPC_Object_var& obj) {
  JSON_RPC_Fan_Out fan_out(obj);
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, -1);
  const auto publish = [this, &fan_out](const subject_type& wanted) {
    const auto range = map_.equal_range(wanted);
    for (auto it = range.first; it != range.second; ++it) fan_out.send(it->second);
  };
  publish(subject);
  publish("*");
  fan_out.send(Global_JSON_RPC_Channel::instance());
  return 0;
}

bool JSON_RPC_Notify_Manager::By_Channel::operator()(const iterator& left,
                                                     const iterator& right) const {
  const Wanted wanted{right->second.unsafe_get(), &right->first};
  if ((*this)(left, wanted)) return true;
  if ((*this)(wanted, left)) return false;
  return std::less<const map_type::value_type*>()(&*left, &*right);
}

bool JSON_RPC_Notify_Manager::By_Channel::operator()(const iterator& left,
                                                     const Wanted& right) const {
  const int channels = order(left->second.unsafe_get(), right.channel);
  if (channels != 0) return channels < 0;
  return right.subject != nullptr && left->first < *right.subject;
}

bool JSON_RPC_Notify_Manager::By_Channel::operator()(const Wanted& left,
                                                     const iterator& right) const {
  const int channels = order(left.channel, right->second.unsafe_get());
  if (channels != 0) return channels < 0;
  return left.subject != nullptr && *left.subject < right->first;
}

int JSON_RPC_Notify_Manager::unsubscribe_subject(const subject_type& subject) {
  const std::pair<iterator, iterator> range = map_.equal_range(subject);
  for (iterator it = range.first; it != range.second;) it = erase(it);
  return 0;
}

void JSON_RPC_Notify_Manager::unsubscribe_closed_channels() {
  for (iterator it = map_.begin(); it != map_.end();) {
    it = it->second.null() ? erase(it) : std::next(it);
  }
}

void JSON_RPC_Notify_Manager::unsubscribe_channel(const JSON_RPC_Channel_var& subscriber,
                                                  const subject_type* subject) {
  const auto own = by_channel_.equal_range(Wanted{subscriber.get(), subject});
  for (index_type::iterator it = own.first; it != own.second;) {
    const iterator entry = *it++;
    if (JSON_RPC_Channel::same(entry->second, subscriber)) erase(entry);
  }
}

JSON_RPC_Notify_Manager::iterator JSON_RPC_Notify_Manager::erase(iterator entry) {
  by_channel_.erase(entry);  // finds its place by the entry, so before that goes
  return map_.erase(entry);
}
