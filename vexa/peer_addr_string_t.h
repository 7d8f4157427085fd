#pragma once

#include <ace/INET_Addr.h>

#include <cstddef>

#include "vexa/vexa_export.h"

namespace vexa {

/// Logs that a socket's address could not be had, with the last OS error. 0.
VEXA_EXPORT int no_peer_addr();

/// Writes the numeric text of `addr`, as "192.0.2.7:4711" or "[2001:db8::7]:4711" with the port and
/// without it the bare host. 1; or 0 with an error line and, where there is room, an empty text.
VEXA_EXPORT int peer_addr_text(const ACE_INET_Addr& addr, bool with_port, char* buf,
                               std::size_t size);

}  // namespace vexa

/// The address of one end of a connection, for log lines; empty when it cannot be had, after an
/// error line that says why. `Peer` offers get_local_addr and get_remote_addr, each taking an
/// ACE_INET_Addr and giving -1 with errno on failure.
template <typename Peer>
class ACE_Peer_Addr_String_T {
public:
  /// Of the other end when `remote`, otherwise of this one. `peer` is borrowed for the call.
  ACE_Peer_Addr_String_T(const Peer* peer, bool remote, bool with_port) {
    buf_[0] = '\0';
    to_str(peer, remote, with_port, buf_, sizeof buf_);
  }

  const char* c_str() const { return buf_; }

  /// The same into `buf` of `size` bytes. 1, or 0 on failure.
  static int to_str(const Peer* peer, bool remote, bool with_port, char* buf, std::size_t size) {
    if (size > 0) buf[0] = '\0';
    // Asking a connection for its addresses changes nothing in it, but its class need not say so.
    Peer* const asked = const_cast<Peer*>(peer);
    ACE_INET_Addr addr;
    if ((remote ? asked->get_remote_addr(addr) : asked->get_local_addr(addr)) == -1) {
      return vexa::no_peer_addr();
    }
    return vexa::peer_addr_text(addr, with_port, buf, size);
  }

private:
  char buf_[96];
};
