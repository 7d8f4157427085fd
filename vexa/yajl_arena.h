#pragma once

#include <yajl/yajl_common.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

/// Memory for one handle of yajl at a time: its first blocks lie in here, the others come from
/// operator new. A handle is made for each message, and what it needs for a small one fits. yajl
/// hardly ever looks whether it got memory: where there is none, std::bad_alloc leaves through its
/// frames, and the handle is good for nothing but to be freed. The arena outlives the handle. One
/// thread at a time.
template <std::size_t size>
class YAJL_Arena_T {
public:
  YAJL_Arena_T() noexcept : functions_{&allocate, &reallocate, &release, this} {}
  YAJL_Arena_T(const YAJL_Arena_T&) = delete;
  YAJL_Arena_T& operator=(const YAJL_Arena_T&) = delete;

  /// For the allocation of the next handle; the one before is gone.
  yajl_alloc_funcs* functions() noexcept {
    used_ = 0;
    return &functions_;
  }

  /// Whether std::bad_alloc is thrown, as at first, or null given: for an operation of yajl that
  /// does look.
  void throws(bool throws) noexcept { throws_ = throws; }

private:
  static constexpr std::size_t alignment = alignof(std::max_align_t);

  /// In front of each block.
  struct alignas(alignment) Head {
    std::size_t length;
  };

  static Head* head_of(void* block) noexcept { return static_cast<Head*>(block) - 1; }

  bool is_inside(const void* block) const noexcept {
    return block >= static_cast<const void*>(bytes_) && block < bytes_ + size;
  }

  static void* allocate(void* self, std::size_t length) {
    YAJL_Arena_T& arena = *static_cast<YAJL_Arena_T*>(self);
    const std::size_t whole = sizeof(Head) + ((length + alignment - 1) & ~(alignment - 1));
    void* place;
    if (whole <= size - arena.used_) {
      place = arena.bytes_ + arena.used_;
      arena.used_ += whole;
    } else if (arena.throws_) {
      place = ::operator new(whole);
    } else {
      place = ::operator new(whole, std::nothrow);
      if (place == nullptr) return nullptr;
    }
    return new (place) Head{length} + 1;
  }

  static void* reallocate(void* self, void* block, std::size_t length) {
    void* const other = allocate(self, length);
    if (block == nullptr || other == nullptr) return other;
    std::memcpy(other, block, std::min(length, head_of(block)->length));
    release(self, block);
    return other;
  }

  static void release(void* self, void* block) {
    if (block == nullptr || static_cast<const YAJL_Arena_T*>(self)->is_inside(block)) return;
    ::operator delete(head_of(block));
  }

  std::size_t used_ = 0;
  bool throws_ = true;
  yajl_alloc_funcs functions_;
  alignas(alignment) unsigned char bytes_[size];
};
