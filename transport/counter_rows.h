#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "transport/transport_export.h"

namespace transport {

/// A number of counters that many threads count in at once without a lock and without a cache line
/// that two of them write. Each thread has a row of its own, which it alone writes; whoever wants
/// the sums adds the rows up. A thread that ends leaves its row, and what it counted, to the next
/// new one: so there are as many rows as threads ever counted at once, and a sum never falls.
///
/// Finding the row costs one look at a thread-local variable, which knows the object that the
/// thread counted in last; with several objects in turn, a look through the thread's list.
///
/// Destroyed when nobody counts any more; threads that have counted may outlive it.
class TRANSPORT_EXPORT Counter_Rows {
public:
  /// Written by one thread with a load and a store, for none other writes it; read by any.
  typedef std::atomic<std::uint64_t> Counter;

  /// So many counters, all 0. Throws std::bad_alloc.
  explicit Counter_Rows(std::size_t count);
  ~Counter_Rows();
  Counter_Rows(const Counter_Rows&) = delete;
  Counter_Rows& operator=(const Counter_Rows&) = delete;

  /// The calling thread's row, for the moment: a caller does not keep it. Where a new thread gets
  /// none, without memory or when its thread_local objects are gone already, a row that no sum
  /// includes.
  Counter* row() noexcept { return found_.serial == serial_ ? found_.row : find(); }

  static void add(Counter& counter, std::uint64_t count) noexcept {
    counter.store(counter.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
  }

  /// Each counter's sum over all threads. What is counted meanwhile may or may not be in it.
  std::vector<std::uint64_t> sums() const;

private:
  struct Rows;
  struct Lease;
  class Leases;
  struct Found {
    std::uint64_t serial;
    Counter* row;
  };

  Counter* find() noexcept;
  Counter* lease();

  // The row that this thread counted in last. Serial numbers are never used again, so it cannot be
  // taken for that of another object in the same place; 0 is none's.
  inline static thread_local Found found_ = {0, nullptr};

  const std::uint64_t serial_;
  const std::shared_ptr<Rows> rows_;  // also of threads that end, for as long as they give back
};

}  // namespace transport
