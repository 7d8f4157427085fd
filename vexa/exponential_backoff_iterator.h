#pragma once

#include <cstddef>
#include <ctime>
#include <iterator>
#include <limits>
#include <random>

#include "vexa/vexa_export.h"

/// How long to wait before each retry, in whole seconds: the slot time, then twice as long each
/// time, up to a cap. With jitter every wait is drawn from the upper half of that (but is never
/// shorter than the slot time), so that those who failed together do not come back together.
///
///   Exponential_Backoff_Iterator wait(1, Exponential_Backoff_Iterator::unlimited, 60, true);
///   for (; wait != Exponential_Backoff_Iterator() && !attempt(); ++wait) sleep(*wait);
///
/// A copy goes on with the same waits. One thread at a time.
class VEXA_EXPORT Exponential_Backoff_Iterator {
public:
  typedef std::input_iterator_tag iterator_category;
  typedef unsigned value_type;
  typedef std::ptrdiff_t difference_type;
  typedef const unsigned* pointer;
  typedef unsigned reference;

  static constexpr unsigned unlimited = std::numeric_limits<unsigned>::max();

  /// The end, which every iterator reaches after its maximum number of retries.
  Exponential_Backoff_Iterator();

  /// `slot_time` and `capped`, the longest wait, are seconds; 0 counts as 1.
  Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries, unsigned capped,
                               bool jitter);

  /// The current wait: the same until ++, and 0 at the end.
  unsigned operator*() const { return value_; }

  /// On to the next wait; at the end nothing happens.
  Exponential_Backoff_Iterator& operator++();
  Exponential_Backoff_Iterator operator++(int);

  /// The seconds of all waits that ++ has left behind: 0 at first.
  std::time_t cumulation() const { return cumulation_; }

  /// Whether both have ended, or both stand at the wait of the same number.
  friend bool operator==(const Exponential_Backoff_Iterator& a,
                         const Exponential_Backoff_Iterator& b) {
    return a.ended() ? b.ended() : !b.ended() && a.i_ == b.i_;
  }
  friend bool operator!=(const Exponential_Backoff_Iterator& a,
                         const Exponential_Backoff_Iterator& b) {
    return !(a == b);
  }

private:
  bool ended() const { return max_retries_ != unlimited && i_ >= max_retries_; }
  unsigned draw();

  unsigned slot_time_;
  unsigned max_retries_;
  unsigned capped_;
  bool jitter_;
  unsigned value_;
  std::time_t cumulation_;
  unsigned slot_time_exp_;  // the current wait before jitter
  unsigned i_;              // how many waits were left behind
  std::minstd_rand random_;
};
