#include "bench/load/histogram.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

constexpr unsigned int bits = 7;
constexpr std::uint64_t group = 1u << bits;  // buckets for each power of two

std::size_t bucket_of(std::uint64_t value) {
  if (value < group) return value;
  const unsigned int shift = 63 - __builtin_clzll(value) - bits;
  return (shift + 1) * group + (value >> shift) - group;
}

/// The highest value that falls into a bucket.
std::uint64_t top_of(std::size_t bucket) {
  if (bucket < group) return bucket;
  const unsigned int shift = bucket / group - 1;
  return ((group + bucket % group + 1) << shift) - 1;
}

}  // namespace

Histogram::Histogram() : buckets_((64 - bits + 1) * group) {}

void Histogram::add(std::uint64_t nanoseconds) {
  ++buckets_[bucket_of(nanoseconds)];
  ++count_;
  max_ = std::max(max_, nanoseconds);
}

void Histogram::add(const Histogram& other) {
  for (std::size_t i = 0; i < buckets_.size(); ++i) buckets_[i] += other.buckets_[i];
  count_ += other.count_;
  max_ = std::max(max_, other.max_);
}

std::uint64_t Histogram::quantile(double q) const {
  const double rank = std::max(1.0, std::ceil(q * count_));
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < buckets_.size(); ++i) {
    seen += buckets_[i];
    if (seen >= rank) return std::min(top_of(i), max_);
  }
  return max_;
}
