#pragma once

#include <functional>
#include <memory>
#include <string>

#include "transport/door.h"
#include "transport/endpoint.h"
#include "transport/loop.h"
#include "transport/server_state.h"

namespace transport {

/// A listening socket on a loop. While too many connections are open, or descriptors have run out,
/// accepting pauses. Opened and destroyed while its loop does not run, otherwise touched on it
/// alone.
class Listener {
public:
  /// Picks the loop that the next connection is pinned to.
  typedef std::function<std::shared_ptr<Loop>()> Next_Loop;

  virtual ~Listener() = default;

  /// Begins to accept.
  virtual void start() = 0;
  /// Goes on where accepting has paused.
  virtual void resume() = 0;
  /// Ends listening; a Unix socket's file goes.
  virtual void close() = 0;

  /// The endpoint as bound: with the port that was picked.
  const Endpoint& endpoint() const { return endpoint_; }

protected:
  Endpoint endpoint_;
};

/// Opens a listener, which counts as number `index`; null with a reason in `error`.
std::unique_ptr<Listener> open_listener(const Listen_Options& options,
                                        const std::shared_ptr<Loop>& loop,
                                        const std::shared_ptr<Server_State>& state,
                                        Listener::Next_Loop next_loop, std::size_t index,
                                        std::string& error);

}  // namespace transport
