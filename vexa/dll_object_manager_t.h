#pragma once

#include <ace/DLL.h>
#include <ace/Guard_T.h>
#include <ace/Null_Mutex.h>

#include <cerrno>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "vexa/find_prefix_t.h"
#include "vexa/vexa_export.h"

namespace vexa {

/// Opens a library so that it outlives `dll`: its reference is dropped by close_dll() alone, with
/// the very same text. 0 or -1. Libraries are opened on one thread only: ACE leaks a handle
/// otherwise.
VEXA_EXPORT int open_dll(ACE_DLL& dll, const char* path, int mode);

/// Drops one reference of a library that open_dll() opened. A library that is linked with ACE stays
/// mapped all the same, unless it exports _get_dll_unload_policy.
VEXA_EXPORT void close_dll(const char* path);

/// What went wrong with `dll` last; never null or empty.
VEXA_EXPORT const char* dll_error(const ACE_DLL& dll);

}  // namespace vexa

/// One object of a registry with the library that it came from. Owns both; moves, never copies.
template <typename Object, typename Gobbler>
class DLL_Object_Entry_T {
public:
  DLL_Object_Entry_T() = default;
  DLL_Object_Entry_T(std::string dll, Object* obj, Gobbler gobbler) noexcept
      : dll_(std::move(dll)), obj_(obj), gobbler_(gobbler) {}
  DLL_Object_Entry_T(DLL_Object_Entry_T&& other) noexcept { take(other); }
  DLL_Object_Entry_T& operator=(DLL_Object_Entry_T&& other) noexcept {
    if (this != &other) {
      destroy();
      take(other);
    }
    return *this;
  }
  ~DLL_Object_Entry_T() { destroy(); }

  /// Destroys the object, by its gobbler where it has one, then drops the library's reference.
  /// Kept: does nothing, for the library neither, when there is no object.
  void destroy() {
    if (obj_ == nullptr) return;
    if (gobbler_ != nullptr) {
      gobbler_(obj_);
    } else {
      delete obj_;
    }
    obj_ = nullptr;
    gobbler_ = nullptr;
    if (dll_.empty()) return;
    vexa::close_dll(dll_.c_str());
    dll_.clear();
  }

  std::string dll_;  ///< path as given to open_dll(); empty when the object is from no library
  Object* obj_ = nullptr;
  Gobbler gobbler_ = nullptr;

private:
  void take(DLL_Object_Entry_T& other) noexcept {
    dll_ = std::move(other.dll_);
    other.dll_.clear();
    obj_ = std::exchange(other.obj_, nullptr);
    gobbler_ = std::exchange(other.gobbler_, nullptr);
  }
};

/// Holds a library and its object while the object is being loaded: unless detach_ is set, both are
/// given back at the end of the scope. One open() a guard, for after a failed one ACE would open
/// the old name again.
template <typename Object, typename Gobbler>
class DLL_Object_Entry_Ptr {
public:
  DLL_Object_Entry_Ptr() = default;
  DLL_Object_Entry_Ptr(const DLL_Object_Entry_Ptr&) = delete;
  DLL_Object_Entry_Ptr& operator=(const DLL_Object_Entry_Ptr&) = delete;
  ~DLL_Object_Entry_Ptr() {
    if (detach_) return;
    // Kept: an object without a gobbler is left alone here, unlike in an entry.
    if (obj_ != nullptr && gobbler_ != nullptr) gobbler_(obj_);
    dll_.close();
    if (path_ != nullptr) vexa::close_dll(path_);
  }

  /// Opens the library; `path` must outlive the guard. 0 or -1.
  int open(const char* path, int mode) {
    const int result = vexa::open_dll(dll_, path, mode);
    if (result == 0) path_ = path;
    return result;
  }

  bool detach_ = false;
  ACE_DLL dll_;
  Object* obj_ = nullptr;
  Gobbler gobbler_ = nullptr;

private:
  // ACE_DLL::close() keeps the reference of a library that was opened to stay, so we drop it by
  // name.
  const char* path_ = nullptr;  // null until opened
};

struct DLL_Object_Manager_Default_Tag {};

/// A registry of named objects from dynamic libraries, which it owns. With the null mutex that all
/// of ours use it is filled at start, then read without a lock. Nothing is destroyed under lock_.
template <typename Object, typename Gobbler, typename Lock, typename Tag>
class DLL_Object_Manager_T {
public:
  typedef Object object_type;
  typedef std::string::size_type size_type;

  DLL_Object_Manager_T() = default;
  DLL_Object_Manager_T(const DLL_Object_Manager_T&) = delete;
  DLL_Object_Manager_T& operator=(const DLL_Object_Manager_T&) = delete;
  /// Destroys the entries in descending order of their names: each object, then its library's
  /// reference. A destructor that looks here again finds the registry empty.
  virtual ~DLL_Object_Manager_T() { clear(); }

  /// Takes `obj` over. The first of a name wins: -1 when it is taken, when the lock fails or memory
  /// runs out (ENOMEM), and `obj` stays the caller's.
  int insert(const std::string& name, const std::string& dll, Object* obj, Gobbler gobbler);

  /// The object of `name`, owned by the registry; null when there is none or the lock fails.
  Object* find(const std::string& name) const;
  /// The same; `key` becomes the registry's own copy of the name, which lives as long as the
  /// object.
  Object* find(const std::string& name, const std::string*& key) const;

  /// The object of the longest registered prefix of `name` that ends at a boundary (see
  /// vexa::find_prefix); `pos` becomes its length. Null, and `pos` unchanged, when there is none.
  Object* find(const std::string& name, char separator, size_type& pos) const;

  /// Destroys the object of `name`. -1 when there is none or the lock fails.
  int remove(const std::string& name);

  /// Destroys all objects.
  void clear();

  /// Calls f(name) for each name in ascending order. Calls out under lock_ (read).
  template <typename F>
  void for_each_name(F f) const;

  /// Calls f(name, path of its library), the path "" for an object from none. Else the same.
  template <typename F>
  void for_each_library(F f) const;

private:
  typedef DLL_Object_Entry_T<Object, Gobbler> entry_type;
  typedef std::map<std::string, entry_type, std::less<>> map_type;

  mutable Lock lock_;
  map_type map_;  // guarded by lock_
};

template <typename Object, typename Gobbler, typename Lock, typename Tag>
int DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::insert(const std::string& name,
                                                             const std::string& dll, Object* obj,
                                                             Gobbler gobbler) {
  ACE_WRITE_GUARD_RETURN(Lock, guard, lock_, -1);
  try {
    std::string path(dll);  // before the entry exists: nothing below can fail
    const auto slot = map_.try_emplace(name);
    if (!slot.second) return -1;
    slot.first->second = entry_type(std::move(path), obj, gobbler);
    return 0;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
Object* DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::find(const std::string& name) const {
  const std::string* key;
  return find(name, key);
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
Object* DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::find(const std::string& name,
                                                               const std::string*& key) const {
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, nullptr);
  const auto it = map_.find(name);
  if (it == map_.end()) return nullptr;
  key = &it->first;
  return it->second.obj_;
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
Object* DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::find(const std::string& name,
                                                               char separator,
                                                               size_type& pos) const {
  ACE_READ_GUARD_RETURN(Lock, guard, lock_, nullptr);
  const auto it = vexa::find_prefix(map_, name, separator);
  if (it == map_.end()) return nullptr;
  pos = it->first.size();
  return it->second.obj_;
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
int DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::remove(const std::string& name) {
  typename map_type::node_type dropped;  // declared before the guard, so destroyed after the unlock
  ACE_WRITE_GUARD_RETURN(Lock, guard, lock_, -1);
  const auto it = map_.find(name);
  if (it == map_.end()) return -1;
  dropped = map_.extract(it);
  return 0;
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
void DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::clear() {
  map_type dropped;  // declared before the guard, so destroyed after the unlock
  ACE_WRITE_GUARD(Lock, guard, lock_);
  dropped.swap(map_);
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
template <typename F>
void DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::for_each_name(F f) const {
  ACE_READ_GUARD(Lock, guard, lock_);
  for (const auto& entry : map_) f(entry.first);
}

template <typename Object, typename Gobbler, typename Lock, typename Tag>
template <typename F>
void DLL_Object_Manager_T<Object, Gobbler, Lock, Tag>::for_each_library(F f) const {
  ACE_READ_GUARD(Lock, guard, lock_);
  for (const auto& entry : map_) f(entry.first, entry.second.dll_);
}
