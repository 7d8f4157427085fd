#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "transport/server_state.h"

namespace transport {

/// One of the connections that a server may have open: counted while it lives.
class Connection_Slot {
public:
  /// `listener`: the index of the one that accepted it; none for what a link opened.
  explicit Connection_Slot(std::shared_ptr<Server_State> state,
                           std::size_t listener = static_cast<std::size_t>(-1))
      : state_(std::move(state)), listener_(listener) {
    ++state_->connections;
    state_->metrics->add(Metrics::OPENED, listener_);
  }
  ~Connection_Slot() {
    if (state_ == nullptr) return;
    state_->metrics->add(Metrics::CLOSED, listener_);
    --state_->connections;
    if (state_->connection_closed) state_->connection_closed();
  }
  Connection_Slot(Connection_Slot&& other) noexcept = default;
  Connection_Slot& operator=(Connection_Slot&&) = delete;

  std::size_t listener() const { return listener_; }

private:
  std::shared_ptr<Server_State> state_;
  const std::size_t listener_;
};

}  // namespace transport
