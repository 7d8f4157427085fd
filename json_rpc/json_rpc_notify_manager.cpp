#include "json_rpc/json_rpc_notify_manager.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

#include "json_rpc/global_json_rpc_channel.h"
#include "json_rpc/json_rpc_fan_out.h"
#include "vexa/singleton_t.h"

// Subscriptions come from handlers and go with their channels, on any thread; notifications are
// published by every reading thread and by the channel map, on its write lock. Strong references
// are made before the write lock and dropped after it; only notify() may be the last to drop one
// while it holds the read lock.

JSON_RPC_Notify_Manager* JSON_RPC_Notify_Manager::instance() {
  return Singleton_T<JSON_RPC_Notify_Manager>::instance();
}
void JSON_RPC_Notify_Manager::close_instance() { Singleton_T<JSON_RPC_Notify_Manager>::close(); }

JSON_RPC_Notify_Manager::JSON_RPC_Notify_Manager() = default;
JSON_RPC_Notify_Manager::~JSON_RPC_Notify_Manager() = default;

int JSON_RPC_Notify_Manager::subscribe(const JSON_RPC_Channel_ptr& subscriber,
                                       const subjects_type& subjects) {
  map_type added;
  try {
    for (const subject_type& subject : subjects) added.emplace(subject, subscriber);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  map_.merge(added);
  return 0;
}

int JSON_RPC_Notify_Manager::unsubscribe(const JSON_RPC_Channel_ptr& subscriber) {
  const JSON_RPC_Channel_var alive(JSON_RPC_Channel::strong(subscriber));
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  if (alive.null()) {
    unsubscribe_closed_channels();
  } else {
    unsubscribe_channel(map_.begin(), map_.end(), alive);
  }
  return 0;
}

int JSON_RPC_Notify_Manager::unsubscribe(const JSON_RPC_Channel_ptr& subscriber,
                                         const subjects_type& subjects) {
  const JSON_RPC_Channel_var alive(JSON_RPC_Channel::strong(subscriber));
  ACE_WRITE_GUARD_RETURN(lock_type, guard, lock_, -1);
  if (alive.null()) {
    unsubscribe_closed_channels();
    return 0;
  }
  for (const subject_type& subject : subjects) {
    const std::pair<iterator, iterator> range = map_.equal_range(subject);
    unsubscribe_channel(range.first, range.second, alive);
  }
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
  const JSON_RPC_Channel_var alive(JSON_RPC_Channel::strong(subscriber));
  if (alive.null()) return false;
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, false);
  return std::any_of(map_.begin(), map_.end(), [&alive](const map_type::value_type& entry) {
    return JSON_RPC_Channel::same(entry.second, alive);
  });
}

std::size_t JSON_RPC_Notify_Manager::size() const {
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, 0);
  return map_.size();
}

int JSON_RPC_Notify_Manager::notify(subject_type subject, const JSON_RPC_Object_var& obj) {
  JSON_RPC_Fan_Out fan_out(obj);
  const JSON_RPC_Channel_var fallback(Global_JSON_RPC_Channel::instance());
  ACE_READ_GUARD_RETURN(lock_type, guard, lock_, -1);
  const auto publish = [this, &fan_out](const subject_type& wanted) {
    const auto range = map_.equal_range(wanted);
    for (auto it = range.first; it != range.second; ++it) fan_out.send(it->second);
  };
  publish(subject);
  publish("*");
  if (!fallback.null()) fallback->send(obj);
  return 0;
}

int JSON_RPC_Notify_Manager::unsubscribe_subject(const subject_type& subject) {
  map_.erase(subject);
  return 0;
}

void JSON_RPC_Notify_Manager::unsubscribe_closed_channels() {
  for (iterator it = map_.begin(); it != map_.end();) {
    it = it->second.null() ? map_.erase(it) : std::next(it);
  }
}

void JSON_RPC_Notify_Manager::unsubscribe_channel(iterator first, iterator last,
                                                  const JSON_RPC_Channel_var& subscriber) {
  while (first != last) {
    first =
        JSON_RPC_Channel::same(first->second, subscriber) ? map_.erase(first) : std::next(first);
  }
}
