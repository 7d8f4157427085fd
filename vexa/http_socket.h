#pragma once

#include <ace/SOCK_Stream.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "vexa/http_peer.h"

namespace vexa {

/// The numeric address as one to connect from; false when it is none.
bool http_local_address(const char* text, ACE_INET_Addr& address);

/// A blocking TCP connection whose waits have limits; ETIMEDOUT tells that one has run out. Raises
/// no SIGPIPE. Interrupted calls go on. One thread at a time.
class HTTP_Socket {
public:
  HTTP_Socket() = default;
  ~HTTP_Socket();
  HTTP_Socket(const HTTP_Socket&) = delete;
  HTTP_Socket& operator=(const HTTP_Socket&) = delete;

  /// Connects to the first address of the host that answers. 0, or -1 with errno and an error line.
  int connect(const HTTP_Peer& peer);

  /// Bytes received; 0 at the end; -1 with errno.
  ssize_t recv(void* data, std::size_t size);

  /// Sends all of `parts`, which are used up; -1 with errno.
  int send(iovec* parts, int count);

  /// Whether the peer is silent and still there, as an idle connection should be.
  bool quiet() const;
  /// Whether there is something to read besides the end.
  bool readable() const;

  /// While off, what would wait fails with EAGAIN.
  void may_wait(bool on) { may_wait_ = on; }
  /// What arrives is TLS's: that there is something does not mean that the server has answered.
  void opaque() { opaque_ = true; }

  /// All waits together end `milliseconds` from now; 0: each has its own limit again.
  void limit(int milliseconds);

  /// How many bytes the connection has taken.
  std::uint64_t sent() const { return sent_; }

private:
  int connect_to(const HTTP_Peer& peer, const ACE_INET_Addr& address);
  int finish_connect(int timeout);
  int wait(short events, int timeout) const;
  int wait_to_send() const;
  bool answered() const;

  ACE_SOCK_Stream stream_;
  int send_timeout_ = 0;
  int recv_timeout_ = 0;
  std::int64_t deadline_ = 0;  // on the steady clock, milliseconds; 0 none
  bool may_wait_ = true;
  bool opaque_ = false;
  std::uint64_t sent_ = 0;
};

}  // namespace vexa
