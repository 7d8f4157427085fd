#pragma once

#include <ace/Bound_Ptr.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <utility>

#include "json_rpc/json_rpc_export.h"

class JSON_RPC_Channel;

/// What the handles of one channel share, counted without a lock: ACE's own lock a mutex for each
/// copy of a handle, which cost small messages a seventh of their time.
class JSON_RPC_EXPORT JSON_RPC_Channel_Count {
public:
  /// For one handle, of the kind that `strong` tells.
  explicit JSON_RPC_Channel_Count(bool strong) noexcept : strong_(strong ? 1 : 0) {}

  /// A strong handle is copied: the channel is alive.
  void copy_strong() noexcept { strong_.fetch_add(1, std::memory_order_relaxed); }

  /// A strong handle is made from a weak one. False when the channel is gone.
  bool attach_strong() noexcept {
    long count = strong_.load(std::memory_order_relaxed);
    do {
      if (count == gone) return false;
    } while (!strong_.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                            std::memory_order_relaxed));
    if (count == 0) attach_weak();
    return true;
  }

  /// A strong handle goes; with the last one, `channel`.
  void detach_strong(JSON_RPC_Channel* channel) noexcept {
    long count = strong_.load(std::memory_order_relaxed);
    while (!strong_.compare_exchange_weak(count, count == 1 ? gone : count - 1,
                                          std::memory_order_acq_rel, std::memory_order_relaxed)) {
    }
    if (count != 1) return;
    destroy(channel);
    detach_weak();
  }

  void attach_weak() noexcept { handles_.fetch_add(1, std::memory_order_relaxed); }
  void detach_weak() noexcept {
    if (handles_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  bool is_gone() const noexcept { return strong_.load(std::memory_order_acquire) == gone; }

private:
  static constexpr long gone = -1;

  /// Where the channel's class is known.
  static void destroy(JSON_RPC_Channel* channel) noexcept;

  std::atomic<long> strong_;      // or gone
  std::atomic<long> handles_{1};  // weak ones, and one for all strong ones together
};

template <>
class ACE_Strong_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex>;

/// A channel that may be gone: made strong just before use. A handle is two pointers; an empty one
/// allocates nothing, and neither does a strong one of a channel that is gone, which is empty. One
/// that is made from a pointer allocates the counts, and throws std::bad_alloc: then the channel is
/// still the caller's. Each thread may use handles of its own; one handle is not for several
/// threads. A handle whose channel is gone equals an empty one.
template <>
class ACE_Weak_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> {
public:
  typedef ACE_Strong_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> Strong;

  ACE_Weak_Bound_Ptr() noexcept = default;
  explicit ACE_Weak_Bound_Ptr(JSON_RPC_Channel* channel)
      : count_(channel == nullptr ? nullptr : new JSON_RPC_Channel_Count(false)),
        channel_(channel) {}
  ACE_Weak_Bound_Ptr(const ACE_Weak_Bound_Ptr& other) noexcept
      : count_(other.count_), channel_(other.channel_) {
    if (count_ != nullptr) count_->attach_weak();
  }
  ACE_Weak_Bound_Ptr(ACE_Weak_Bound_Ptr&& other) noexcept { swap(other); }
  inline ACE_Weak_Bound_Ptr(const Strong& other) noexcept;
  ~ACE_Weak_Bound_Ptr() {
    if (count_ != nullptr) count_->detach_weak();
  }
  ACE_Weak_Bound_Ptr& operator=(ACE_Weak_Bound_Ptr other) noexcept { return swap(other), *this; }
  inline ACE_Weak_Bound_Ptr& operator=(const Strong& other) noexcept;

  inline Strong operator->() const noexcept;
  inline Strong strong() const noexcept;
  /// Only to be compared: the channel may be gone, or go.
  JSON_RPC_Channel* unsafe_get() const noexcept { return channel_; }
  void reset(JSON_RPC_Channel* channel = nullptr) { *this = ACE_Weak_Bound_Ptr(channel); }
  bool null() const noexcept { return alive() == nullptr; }

  bool operator==(const ACE_Weak_Bound_Ptr& other) const noexcept {
    return alive() == other.alive();
  }
  bool operator!=(const ACE_Weak_Bound_Ptr& other) const noexcept { return !(*this == other); }
  inline bool operator==(const Strong& other) const noexcept;
  inline bool operator!=(const Strong& other) const noexcept;
  bool operator==(JSON_RPC_Channel* other) const noexcept { return alive() == other; }
  bool operator!=(JSON_RPC_Channel* other) const noexcept { return alive() != other; }

private:
  friend class ACE_Strong_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex>;

  void swap(ACE_Weak_Bound_Ptr& other) noexcept {
    std::swap(count_, other.count_);
    std::swap(channel_, other.channel_);
  }
  JSON_RPC_Channel* alive() const noexcept {
    return count_ == nullptr || count_->is_gone() ? nullptr : channel_;
  }

  JSON_RPC_Channel_Count* count_ = nullptr;
  JSON_RPC_Channel* channel_ = nullptr;
};

/// Keeps a channel alive: the last one destroys it. The rules of the weak handle hold for it too.
template <>
class ACE_Strong_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> {
public:
  typedef ACE_Weak_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> Weak;

  ACE_Strong_Bound_Ptr() noexcept = default;
  explicit ACE_Strong_Bound_Ptr(JSON_RPC_Channel* channel)
      : count_(channel == nullptr ? nullptr : new JSON_RPC_Channel_Count(true)),
        channel_(channel) {}
  ACE_Strong_Bound_Ptr(const ACE_Strong_Bound_Ptr& other) noexcept
      : count_(other.count_), channel_(other.channel_) {
    if (count_ != nullptr) count_->copy_strong();
  }
  ACE_Strong_Bound_Ptr(ACE_Strong_Bound_Ptr&& other) noexcept { swap(other); }
  ACE_Strong_Bound_Ptr(const Weak& other) noexcept {
    if (other.count_ == nullptr || !other.count_->attach_strong()) return;
    count_ = other.count_;
    channel_ = other.channel_;
  }
  ~ACE_Strong_Bound_Ptr() {
    if (count_ != nullptr) count_->detach_strong(channel_);
  }
  ACE_Strong_Bound_Ptr& operator=(ACE_Strong_Bound_Ptr other) noexcept {
    return swap(other), *this;
  }
  ACE_Strong_Bound_Ptr& operator=(const Weak& other) noexcept {
    return *this = ACE_Strong_Bound_Ptr(other);
  }

  JSON_RPC_Channel* operator->() const noexcept { return channel_; }
  JSON_RPC_Channel& operator*() const noexcept { return *channel_; }
  JSON_RPC_Channel* get() const noexcept { return channel_; }
  void reset(JSON_RPC_Channel* channel = nullptr) { *this = ACE_Strong_Bound_Ptr(channel); }
  bool null() const noexcept { return channel_ == nullptr; }

  bool operator==(const ACE_Strong_Bound_Ptr& other) const noexcept {
    return channel_ == other.channel_;
  }
  bool operator!=(const ACE_Strong_Bound_Ptr& other) const noexcept { return !(*this == other); }
  bool operator==(const Weak& other) const noexcept { return channel_ == other.alive(); }
  bool operator!=(const Weak& other) const noexcept { return channel_ != other.alive(); }
  bool operator==(JSON_RPC_Channel* other) const noexcept { return channel_ == other; }
  bool operator!=(JSON_RPC_Channel* other) const noexcept { return channel_ != other; }

private:
  friend class ACE_Weak_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex>;

  void swap(ACE_Strong_Bound_Ptr& other) noexcept {
    std::swap(count_, other.count_);
    std::swap(channel_, other.channel_);
  }

  JSON_RPC_Channel_Count* count_ = nullptr;
  JSON_RPC_Channel* channel_ = nullptr;
};

typedef ACE_Weak_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> JSON_RPC_Channel_ptr;
typedef ACE_Strong_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> JSON_RPC_Channel_var;

inline JSON_RPC_Channel_ptr::ACE_Weak_Bound_Ptr(const Strong& other) noexcept
    : count_(other.count_), channel_(other.channel_) {
  if (count_ != nullptr) count_->attach_weak();
}
inline JSON_RPC_Channel_ptr& JSON_RPC_Channel_ptr::operator=(const Strong& other) noexcept {
  return *this = ACE_Weak_Bound_Ptr(other);
}
inline JSON_RPC_Channel_var JSON_RPC_Channel_ptr::strong() const noexcept { return Strong(*this); }
inline JSON_RPC_Channel_var JSON_RPC_Channel_ptr::operator->() const noexcept { return strong(); }
inline bool JSON_RPC_Channel_ptr::operator==(const Strong& other) const noexcept {
  return other == *this;
}
inline bool JSON_RPC_Channel_ptr::operator!=(const Strong& other) const noexcept {
  return other != *this;
}
