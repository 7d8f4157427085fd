#pragma once

#include <memory>

#include "vexa/http_socket.h"
#include "vexa/http_tls.h"

namespace vexa {

/// A connection to an HTTP server, plain or TLS. One thread at a time.
class HTTP_Stream {
public:
  /// 0, or -1 with errno and an error line.
  int connect(const HTTP_Peer& peer);

  ssize_t recv(void* data, std::size_t size) {
    return tls_ ? tls_->recv(data, size) : socket_.recv(data, size);
  }
  int send(iovec* parts, int count) {
    return tls_ ? tls_->send(parts, count) : socket_.send(parts, count);
  }
  bool quiet() { return tls_ ? tls_->quiet() : socket_.quiet(); }
  /// Whether something has arrived that can be read although sending failed: over TLS nothing.
  bool readable() const { return !tls_ && socket_.readable(); }
  void may_wait(bool on) { socket_.may_wait(on); }
  std::uint64_t sent() const { return socket_.sent(); }

private:
  HTTP_Socket socket_;
  std::unique_ptr<HTTP_TLS> tls_;  // destroyed first
};

}  // namespace vexa
