#pragma once

#include <memory>
#include <utility>

#include "transport/server_state.h"

namespace transport {

/// One of the connections that a server may have open: counted while it lives.
class Connection_Slot {
public:
  explicit Connection_Slot(std::shared_ptr<Server_State> state) : state_(std::move(state)) {
    ++state_->connections;
  }
  ~Connection_Slot() {
    if (state_ == nullptr) return;
    --state_->connections;
    if (state_->connection_closed) state_->connection_closed();
  }
  Connection_Slot(Connection_Slot&& other) noexcept = default;
  Connection_Slot& operator=(Connection_Slot&&) = delete;

private:
  std::shared_ptr<Server_State> state_;
};

}  // namespace transport
