#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "transport/counter_rows.h"
#include "transport/transport_export.h"

namespace transport {

/// What a server has done, in numbers that only rise. Its methods and listeners are known when it
/// is made, and so are the places of all counters. Any thread counts, at the cost of a few
/// instructions: no lock, no allocation but a thread's first, no cache line that two threads write
/// (Counter_Rows). An index that is not known counts as 0 where methods are meant, and as the links
/// where listeners are.
class TRANSPORT_EXPORT Metrics {
public:
  enum Counter : unsigned {
    NOTIFICATIONS_IN,
    NOTIFICATIONS_OUT,
    PARSE_FAILURES,         ///< texts that were no JSON
    BAD_MESSAGES,           ///< JSON that was no message, messages over the limit, bad headers
    DROPPED_ANSWERS,        ///< answers of handlers to ids that awaited none
    NOTIFICATION_OVERRUNS,  ///< channels that were closed for notifications that they did not take
    RELAYS_BEGUN,           ///< requests that were forwarded
    RELAYS_ENDED,           ///< answers that came back whole, errors of the agent among them
    RELAYS_FAILED,          ///< requests that the agent will not answer any more
    LINK_RETRIES,
    LATE_ANSWERS,  ///< answers of peers for which nobody waited
    COUNTERS
  };

  /// Counted for each listener, and for all links together.
  enum Listener_Counter : unsigned {
    BYTES_IN,
    BYTES_OUT,
    OPENED,  ///< connections that were accepted, or that a link opened
    REFUSED,
    CLOSED,
    LISTENER_COUNTERS
  };

  /// The codes of answers: none, the standard's five, the hundred from -32000 down, and any other.
  static constexpr std::size_t RESULT = 0;
  static constexpr std::size_t OTHER_CODE = 106;
  static constexpr std::size_t CODES = 107;
  static std::size_t code_index(int code) noexcept;
  /// The code of an index; 0 for RESULT and OTHER_CODE.
  static int code_of(std::size_t index) noexcept;

  /// The upper bounds of the intervals of duration; those that took longer have one more.
  static constexpr std::size_t BOUNDS = 16;
  static const std::array<std::chrono::microseconds, BOUNDS> bounds;

  /// The methods of the process's registry: complete before the server starts.
  static std::vector<std::string> registered_methods();

  /// Throws std::bad_alloc.
  explicit Metrics(const std::vector<std::string>& methods = {},
                   const std::vector<std::string>& listeners = {});
  Metrics(const Metrics&) = delete;
  Metrics& operator=(const Metrics&) = delete;

  /// The index of a method; 0 for any that is not registered.
  std::size_t method(std::string_view name) const noexcept;
  /// The index of all links; listeners have 0 and so on, in the order in which they were given.
  std::size_t links() const noexcept { return listeners_.size() - 1; }

  /// A request was read.
  void call(std::size_t method) noexcept { count(at_method(method) + CALLS); }
  /// Its answer was queued: code 0 is a result. `duration` runs from the arrival.
  void answered(std::size_t method, int code, std::chrono::nanoseconds duration) noexcept;
  /// An error was queued that answers no request: its text was none.
  void complained(int code) noexcept { count(COUNTERS + code_index(code)); }

  void add(Counter counter, std::uint64_t n = 1) noexcept { count(counter, n); }
  void add(Listener_Counter counter, std::size_t listener, std::uint64_t n = 1) noexcept {
    count(at_listener(listener) + counter, n);
  }

  /// The name of each index, that of the methods that are not registered being "other" and that of
  /// the links "links".
  const std::vector<std::string>& methods() const { return methods_; }
  const std::vector<std::string>& listeners() const { return listeners_; }

  /// All numbers at a moment. Borrows the metrics.
  class TRANSPORT_EXPORT Sums {
  public:
    explicit Sums(const Metrics& metrics) : metrics_(metrics), sums_(metrics.rows_.sums()) {}

    std::uint64_t calls(std::size_t method) const { return of_method(method, CALLS); }
    /// Answers that were errors.
    std::uint64_t errors(std::size_t method) const { return of_method(method, ERRORS); }
    std::chrono::nanoseconds time(std::size_t method) const {
      return std::chrono::nanoseconds(of_method(method, NANOSECONDS));
    }
    /// Answers that took longer than bounds[i - 1] and no longer than bounds[i].
    std::uint64_t within(std::size_t method, std::size_t i) const {
      return of_method(method, INTERVALS + i);
    }
    std::uint64_t answers(std::size_t code_index) const { return sums_[COUNTERS + code_index]; }
    std::uint64_t get(Counter counter) const { return sums_[counter]; }
    std::uint64_t get(Listener_Counter counter, std::size_t listener) const {
      return sums_[metrics_.at_listener(listener) + counter];
    }

  private:
    std::uint64_t of_method(std::size_t method, std::size_t part) const {
      return sums_[metrics_.at_method(method) + part];
    }

    const Metrics& metrics_;
    const std::vector<std::uint64_t> sums_;
  };

private:
  // The counters in a row: Counter, codes, a group for each listener, a group for each method.
  enum Method_Counter : std::size_t {
    CALLS,
    ERRORS,
    NANOSECONDS,
    INTERVALS,
    METHOD_COUNTERS = INTERVALS + BOUNDS + 1
  };
  static constexpr std::size_t first_listener = COUNTERS + CODES;

  std::size_t at_listener(std::size_t index) const noexcept {
    return first_listener + (index < links() ? index : links()) * LISTENER_COUNTERS;
  }
  std::size_t at_method(std::size_t index) const noexcept {
    return first_method_ + (index < methods_.size() ? index : 0) * METHOD_COUNTERS;
  }
  void count(std::size_t counter, std::uint64_t n = 1) noexcept {
    Counter_Rows::add(rows_.row()[counter], n);
  }

  // All but the counters themselves is only read once this is made.
  std::vector<std::string> methods_;
  std::vector<std::string> listeners_;
  std::unordered_map<std::string_view, std::size_t> indices_;  // of methods_, whose texts it has
  std::size_t first_method_;
  Counter_Rows rows_;
};

}  // namespace transport
