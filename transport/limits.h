#pragma once

#include <chrono>
#include <cstddef>

namespace transport {

/// What a server's channels may cost, and what happens at each limit.
struct Limits {
  /// Bytes of one incoming message, 0 for none. A longer one is answered -32600 and its channel
  /// closed.
  std::size_t max_message = 10u << 20;

  /// Unsent bytes of a channel. A notification that would exceed it closes the channel, a call is
  /// refused (ENOBUFS), an answer is queued all the same; one message may always be queued. Over a
  /// quarter of it streamed output blocks its producer, and with that much in answers the peer's
  /// requests wait. Those that wait may cost as much as this: over it the channel is not read
  /// further, or, where answers are awaited from it, they are refused (-32000).
  std::size_t max_queue = 8u << 20;

  /// Requests of a channel in work: at it, further ones wait.
  std::size_t max_pending = 1000;

  /// Connections of a server: at it, accepting pauses.
  std::size_t max_connections = 1000;

  /// A channel is closed when for so long no byte of a message came that was begun, or the peer
  /// took no byte of waiting output.
  std::chrono::milliseconds stall_timeout{10'000};

  /// A channel without traffic for so long is closed, unless it is subscribed, an agent, or owed an
  /// answer.
  std::chrono::milliseconds idle_timeout{600'000};

  std::size_t queue_mark() const { return max_queue / 4; }
};

}  // namespace transport
