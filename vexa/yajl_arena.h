#pragma once

#include <yajl/yajl_common.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

/// Memory for one handle of yajl at a time: its first blocks lie in here, the others come from
/// malloc. A handle is made for each message, and what it needs for a small one fits. The arena
/// outlives the handle. One thread at a time.
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

private:
  static constexpr std::size_t alignment = alignof(std::max_align_t);

  bool is_inside(const void* block) const noexcept {
    return block >= static_cast<const void*>(bytes_) && block < bytes_ + size;
  }

  static void* allocate(void* self, std::size_t length) {
    YAJL_Arena_T& arena = *static_cast<YAJL_Arena_T*>(self);
    const std::size_t rounded = (length + alignment - 1) & ~(alignment - 1);
    if (rounded < length || rounded == 0 || rounded > size - arena.used_) {
      return std::malloc(length);
    }
    void* const block = arena.bytes_ + arena.used_;
    arena.used_ += rounded;
    return block;
  }

  static void* reallocate(void* self, void* block, std::size_t length) {
    const YAJL_Arena_T& arena = *static_cast<YAJL_Arena_T*>(self);
    if (block == nullptr) return allocate(self, length);
    if (!arena.is_inside(block)) return std::realloc(block, length);
    // How long it was is not known: what is behind it in here is copied too, and overwritten later.
    void* const larger = std::malloc(length);
    if (larger == nullptr) return nullptr;
    const std::size_t behind = arena.bytes_ + size - static_cast<unsigned char*>(block);
    std::memcpy(larger, block, length < behind ? length : behind);
    return larger;
  }

  static void release(void* self, void* block) {
    if (!static_cast<const YAJL_Arena_T*>(self)->is_inside(block)) std::free(block);
  }

  std::size_t used_ = 0;
  yajl_alloc_funcs functions_;
  alignas(alignment) unsigned char bytes_[size];
};
