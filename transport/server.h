#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "transport/door.h"
#include "transport/limits.h"
#include "transport/link_options.h"
#include "transport/metrics.h"
#include "transport/transport_export.h"

namespace transport {

/// Serves JSON-RPC over stream sockets: listeners, loop threads, and a Stream_Channel for each
/// connection, whose messages go to the dispatcher. The library's registries must exist from before
/// start() until after stop().
///
///   Server server(limits, threads);
///   server.listen("tcp://127.0.0.1:0", url, error);
///   server.start();
///   ...
///   server.stop(std::chrono::seconds(10));
///
/// One thread, which is no loop's, calls everything here.
class TRANSPORT_EXPORT Server {
public:
  /// `threads` loops for connections, at least one, and one that accepts.
  Server(const Limits& limits, unsigned int threads);
  /// Stops. Waits for handlers that hold a loop.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Opens a listener, which accepts from start() on: 0 and its URL, with the port that was picked,
  /// in `bound`; or -1 and a reason in `error`. A stale Unix socket's file is replaced.
  int listen(const std::string& url, std::string& bound, std::string& error);
  /// The same for what a door serves.
  int listen(const Listen_Options& options, std::string& bound, std::string& error);

  /// Opens a connection to a peer, and keeps opening it: from start() on, before which this is
  /// called. 0, with the link's channel in `channel`; or -1 and a reason in `error`. The channel
  /// lives as long as the server; while the link is down its send() gives -1 with errno ENOTCONN.
  /// Up, it is in the channel pool. A connection's own channel, with which the peer's requests are
  /// dispatched, is in the channel map like an accepted one.
  int connect(const std::string& url, const Link_Options& options, JSON_RPC_Channel_ptr& channel,
              std::string& error);

  void start();

  /// Stops in order: no more connections, in or out; new requests are refused with -32001; those in
  /// work get up to `drain`; what is still owed is answered -32001; all is sent and closed; the
  /// loops end. 0, or -1 when a handler holds a loop: that loop and its connections are left as
  /// they are.
  int stop(std::chrono::milliseconds drain);

  std::size_t connections() const;
  /// Requests in work, over all channels: they await an answer, or it is being produced. While it
  /// runs.
  std::size_t owed() const;
  /// Bytes, over all channels, that wait to be handed to the system. While it runs.
  std::size_t unsent() const;

  /// The two as of the loops' last ticks, at most a second ago. Any thread, a loop's too, from
  /// start() on.
  struct Load {
    std::size_t owed = 0;
    std::size_t unsent = 0;
  };
  Load load() const;

  /// Counters. Any thread, from start() on.
  const Metrics& metrics() const;

  /// Whether every loop answers within `timeout`. Any thread that is no loop's, while it runs.
  bool alive(std::chrono::milliseconds timeout) const;

private:
  struct Impl;
  const std::shared_ptr<Impl> impl_;
};

}  // namespace transport
