#pragma once

#include <functional>
#include <string>

#include "json_rpc/json_rpc_object.h"
#include "transport/framing.h"

namespace transport {

/// How a link behaves: a connection that this process opens, and opens again.
struct Link_Options {
  Framing framing = Framing::LINES;

  /// After a failure or a disconnect it is tried again after 1, 2, 4 and so on up to 60 seconds,
  /// with jitter; from the start again when the link has been up. Without it, once.
  bool reconnect = true;

  /// What waits to be sent may stand still for as long as the peer likes: a hub does not read an
  /// agent whose answer it relays to a slow reader. Without it the stall time closes the
  /// connection.
  bool patient = false;

  /// At the stop the connection is closed when all is sent, without waiting for the peer to close
  /// too: where what it sends meanwhile has not been read, it may lose what was sent last.
  bool abrupt = false;

  /// Makes a request that is sent first, under a fresh id: the link is up when it was answered with
  /// a result. An error response, or none within the stall time, ends the connection. Null: up when
  /// connected. On a loop thread; may give a null handle, which counts as a failure.
  std::function<JSON_RPC_Object_var()> greeting;

  /// Told when the link goes up, with "", and when it goes down or an attempt has failed, with the
  /// reason. On a loop thread: must not block. Null: nobody is told.
  std::function<void(bool up, const std::string& reason)> changed;
};

}  // namespace transport
