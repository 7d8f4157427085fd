#include "vexa/exponential_backoff_iterator.h"

#include <unistd.h>

#include <algorithm>

namespace {

/// Differs between processes that start at once on several machines.
unsigned seed() {
  unsigned bits = 0;
  if (::getentropy(&bits, sizeof bits) != 0) bits = static_cast<unsigned>(::getpid());
  return bits;
}

}  // namespace

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator()
    : slot_time_(1),
      max_retries_(0),
      capped_(1),
      jitter_(false),
      value_(0),
      cumulation_(0),
      slot_time_exp_(1),
      i_(0) {}

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries,
                                                           unsigned capped, bool jitter)
    : slot_time_(std::max(slot_time, 1U)),
      max_retries_(max_retries),
      capped_(std::max(capped, 1U)),
      jitter_(jitter),
      value_(0),
      cumulation_(0),
      slot_time_exp_(std::min(slot_time_, capped_)),
      i_(0),
      random_(jitter ? seed() : 1) {
  value_ = draw();
}

unsigned Exponential_Backoff_Iterator::draw() {
  if (ended()) return 0;
  if (!jitter_) return slot_time_exp_;
  const unsigned half = slot_time_exp_ / 2 + slot_time_exp_ % 2;
  const unsigned least = std::min(std::max(half, slot_time_), slot_time_exp_);
  return std::uniform_int_distribution<unsigned>(least, slot_time_exp_)(random_);
}

Exponential_Backoff_Iterator& Exponential_Backoff_Iterator::operator++() {
  if (ended()) return *this;
  cumulation_ += value_;
  if (i_ != unlimited) ++i_;
  slot_time_exp_ = slot_time_exp_ > capped_ / 2 ? capped_ : slot_time_exp_ * 2;
  value_ = draw();
  return *this;
}

Exponential_Backoff_Iterator Exponential_Backoff_Iterator::operator++(int) {
  const Exponential_Backoff_Iterator before(*this);
  ++*this;
  return before;
}
