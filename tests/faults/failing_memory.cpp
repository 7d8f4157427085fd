#include "tests/faults/failing_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local Failing_Memory* armed = nullptr;
std::atomic<long> blocks{0};

void* allocate(std::size_t size) noexcept {
  void* const block = Failing_Memory::fails() ? nullptr : std::malloc(size);
  if (block != nullptr) blocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

}  // namespace

Failing_Memory::Armed::Armed(Failing_Memory& memory) { armed = &memory; }
Failing_Memory::Armed::~Armed() { armed = nullptr; }

Failing_Memory::Pause::Pause() : paused_(std::exchange(armed, nullptr)) {}
Failing_Memory::Pause::~Pause() { armed = paused_; }

bool Failing_Memory::fails() {
  if (armed == nullptr || armed->left_-- > 0) return false;
  if (armed->hit_ && armed->kind_ == ONE) return false;
  return armed->hit_ = true;
}

void Failing_Memory::starve_thread(Kind kind) {
  thread_local Failing_Memory none(kind, 0);
  armed = &none;
}

long Failing_Memory::live_blocks() { return blocks; }

// The array forms, and the library's own copies of these, end here.
void* operator new(std::size_t size) {
  void* const block = allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  blocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
