#pragma once

#include <ace/RW_Thread_Mutex.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"

/// Who wants which notifications: subject (a method name) -> channels, held weakly. The subject "*"
/// stands for all. Nothing is de-duplicated: a channel that subscribed twice gets everything twice,
/// and so does one that subscribed to a subject and to "*".
///
/// Changes all the time, under lock_; any thread may call anything. Channel map, then this, then a
/// channel's own locks: nothing here calls the channel map. Created by the service before other
/// threads use it. Operations give 0, or -1 when the lock fails.
class JSON_RPC_EXPORT JSON_RPC_Notify_Manager {
public:
  typedef std::string subject_type;
  typedef std::vector<subject_type> subjects_type;
  typedef std::multimap<subject_type, JSON_RPC_Channel_ptr> map_type;
  typedef ACE_RW_Thread_Mutex lock_type;

  static JSON_RPC_Notify_Manager* instance();
  static void close_instance();

  JSON_RPC_Notify_Manager();
  ~JSON_RPC_Notify_Manager();
  JSON_RPC_Notify_Manager(const JSON_RPC_Notify_Manager&) = delete;
  JSON_RPC_Notify_Manager& operator=(const JSON_RPC_Notify_Manager&) = delete;

  /// Adds a subscription for each subject, whether or not there is one already. All or none: -1
  /// with errno ENOMEM when out of memory.
  int subscribe(const JSON_RPC_Channel_ptr& subscriber, const subjects_type& subjects);

  /// Ends all subscriptions of a channel, or those to `subjects`. A channel that is gone cannot be
  /// told from others that are: then all subscriptions of all channels that are gone end, which
  /// takes a walk over everybody's.
  int unsubscribe(const JSON_RPC_Channel_ptr& subscriber);
  int unsubscribe(const JSON_RPC_Channel_ptr& subscriber, const subjects_type& subjects);

  /// Ends everybody's subscriptions to a subject, or to each of `subjects`.
  int unsubscribe(const subject_type& subject);
  int unsubscribe(const subjects_type& subjects);

  /// Whether that channel, which is not gone, has a subscription. False when the lock fails.
  bool subscribed(const JSON_RPC_Channel_ptr& subscriber) const;

  /// How many subscriptions there are, those of channels that are gone and not yet swept included.
  /// 0 when the lock fails.
  std::size_t size() const;

  /// Sends `obj` to the subscribers of `subject`, then to those of "*", each in the order in which
  /// they subscribed, then to the default channel. Channels that are gone are skipped; what send()
  /// gives is ignored. Under the subject "*" the subscribers of "*" get it twice.
  /// Calls out: send() under lock_ (read), so it must neither subscribe nor unsubscribe. It can ask
  /// JSON_RPC_Fan_Out::current().
  int notify(subject_type subject, const JSON_RPC_Object_var& obj);

private:
  typedef map_type::iterator iterator;

  /// A channel's subscriptions to one subject, or, when that is null, to all.
  struct Wanted {
    const JSON_RPC_Channel* channel;
    const subject_type* subject;
  };
  /// By the channel's address, which several had one after the other, then by subject.
  struct By_Channel {
    typedef void is_transparent;
    bool operator()(const iterator& left, const iterator& right) const;
    bool operator()(const iterator& left, const Wanted& right) const;
    bool operator()(const Wanted& left, const iterator& right) const;
  };
  typedef std::set<iterator, By_Channel> index_type;

  // These require lock_ (write).
  int unsubscribe_subject(const subject_type& subject);
  void unsubscribe_closed_channels();
  /// `subscriber` is not empty; a null `subject` stands for all.
  void unsubscribe_channel(const JSON_RPC_Channel_var& subscriber, const subject_type* subject);
  iterator erase(iterator entry);

  map_type map_;  // guarded by lock_
  mutable lock_type lock_;
  // Every entry of map_; guarded by lock_. Without it thousands of channels that close one after
  // the other would each walk over the subscriptions of all.
  index_type by_channel_;
};
