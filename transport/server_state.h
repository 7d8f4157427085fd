#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

#include "transport/limits.h"
#include "transport/metrics.h"

namespace transport {

/// What the connections of one server share. Any thread.
struct Server_State {
  explicit Server_State(const Limits& l) : limits(l), metrics(std::make_unique<Metrics>()) {}

  const Limits limits;
  std::atomic<bool> stopping{false};        ///< new requests are refused
  std::atomic<std::size_t> connections{0};  ///< open ones
  std::function<void()> connection_closed;  ///< set before any connection is there
  /// Of each loop, as of its last tick: requests in work, and unsent bytes.
  struct Figures {
    std::atomic<std::size_t> owed{0};
    std::atomic<std::size_t> unsent{0};
  };
  std::unique_ptr<Metrics> metrics;  ///< the same
};

}  // namespace transport
