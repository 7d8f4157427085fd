#include "transport/counter_rows.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

// A thread takes a row when it first counts and gives it back at its end. Both happen under the
// mutex, which also hands what one thread wrote on to the next: between them a row is written
// without any lock.

namespace transport {

namespace {

constexpr std::size_t cache_line = 64;  // bytes

typedef Counter_Rows::Counter Counter;

struct Free_Row {
  void operator()(Counter* row) const { ::operator delete(row, std::align_val_t(cache_line)); }
};
typedef std::unique_ptr<Counter, Free_Row> Row;

/// A row begins with a cache line and fills its last one.
Row make_row(std::size_t count) {
  constexpr std::size_t in_a_line = cache_line / sizeof(Counter);
  const std::size_t lines = count / in_a_line + 1;
  void* const memory = ::operator new(lines* cache_line, std::align_val_t(cache_line));
  Counter* const row = static_cast<Counter*>(memory);
  for (std::size_t i = 0; i < lines * in_a_line; ++i) new (row + i) Counter(0);
  return Row(row);
}

std::uint64_t next_serial() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

// Set when the thread's list of leases is gone: other thread_local objects may count after it.
thread_local bool leases_gone = false;

}  // namespace

struct Counter_Rows::Rows {
  explicit Rows(std::size_t n) : count(n), lost(make_row(n)) {}

  Counter* take() {
    const std::lock_guard<std::mutex> guard(mutex);
    if (free.empty()) {
      all.reserve(all.size() + 1);
      free.reserve(all.size() + 1);  // so that giving one back cannot fail
      all.push_back(make_row(count));
      return all.back().get();
    }
    Counter* const row = free.back();
    free.pop_back();
    return row;
  }

  void give_back(Counter* row) noexcept {
    const std::lock_guard<std::mutex> guard(mutex);
    free.push_back(row);
  }

  const std::size_t count;
  const Row lost;              // of those who get none; several threads may write it
  std::mutex mutex;            // a leaf
  std::vector<Row> all;        // guarded by mutex
  std::vector<Counter*> free;  // guarded by mutex: rows of threads that have ended
};

/// A row that a thread has.
struct Counter_Rows::Lease {
  std::uint64_t serial;
  std::weak_ptr<Rows> rows;
  Counter* row;
};

/// The rows that a thread has, of several objects. Gives them back when the thread ends.
class Counter_Rows::Leases {
public:
  ~Leases() {
    leases_gone = true;
    found_ = {0, nullptr};
    for (const Lease& lease : leases_) {
      if (const std::shared_ptr<Rows> rows = lease.rows.lock()) rows->give_back(lease.row);
    }
  }

  Counter* find(std::uint64_t serial) const {
    for (const Lease& lease : leases_) {
      if (lease.serial == serial) return lease.row;
    }
    return nullptr;
  }

  /// Takes a row; forgets those of objects that are gone.
  Counter* add(std::uint64_t serial, const std::shared_ptr<Rows>& rows) {
    const auto gone = [](const Lease& lease) { return lease.rows.expired(); };
    leases_.erase(std::remove_if(leases_.begin(), leases_.end(), gone), leases_.end());
    leases_.reserve(leases_.size() + 1);
    leases_.push_back({serial, rows, rows->take()});
    return leases_.back().row;
  }

private:
  std::vector<Lease> leases_;
};

Counter_Rows::Counter_Rows(std::size_t count)
    : serial_(next_serial()), rows_(std::make_shared<Rows>(count)) {}

Counter_Rows::~Counter_Rows() = default;

Counter_Rows::Counter* Counter_Rows::find() noexcept {
  if (leases_gone) return rows_->lost.get();
  try {
    Counter* const row = lease();
    found_ = {serial_, row};
    return row;
  } catch (const std::bad_alloc&) {
    return rows_->lost.get();
  }
}

Counter_Rows::Counter* Counter_Rows::lease() {
  thread_local Leases leases;
  Counter* const row = leases.find(serial_);
  return row != nullptr ? row : leases.add(serial_, rows_);
}

std::vector<std::uint64_t> Counter_Rows::sums() const {
  std::vector<std::uint64_t> sums(rows_->count);
  const std::lock_guard<std::mutex> guard(rows_->mutex);
  for (const Row& row : rows_->all) {
    for (std::size_t i = 0; i < sums.size(); ++i) {
      sums[i] += row.get()[i].load(std::memory_order_relaxed);
    }
  }
  return sums;
}

}  // namespace transport
