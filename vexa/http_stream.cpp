#include "vexa/http_stream.h"

#include <cerrno>
#include <new>

namespace vexa {

int HTTP_Stream::connect(const HTTP_Peer& peer) {
  if (socket_.connect(peer) == -1) return -1;
  if (peer.tls == nullptr) return 0;
  socket_.opaque();
  tls_.reset(new (std::nothrow) HTTP_TLS(socket_));
  if (!tls_) {
    errno = ENOMEM;
    return -1;
  }
  if (tls_->handshake(peer) == 0) return 0;
  const int error = errno;
  tls_.reset();
  errno = error;
  return -1;
}

}  // namespace vexa
