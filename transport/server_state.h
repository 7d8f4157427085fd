#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

#include "transport/limits.h"

namespace transport {

/// What the connections of one server share. Any thread.
struct Server_State {
  explicit Server_State(const Limits& l) : limits(l) {}

  const Limits limits;
  std::atomic<bool> stopping{false};        ///< new requests are refused
  std::atomic<std::size_t> connections{0};  ///< open ones
  std::function<void()> connection_closed;  ///< set before any connection is there
};

}  // namespace transport
