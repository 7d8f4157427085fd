#pragma once

#include <ace/config-all.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "vexa/http_socket.h"

struct ssl_st;
struct ssl_ctx_st;
ACE_BEGIN_VERSIONED_NAMESPACE_DECL
class ACE_SSL_Context;
ACE_END_VERSIONED_NAMESPACE_DECL

namespace vexa {

/// Destroys a context where its class is known.
struct HTTP_TLS_Context_Delete {
  void operator()(ACE_SSL_Context* context) const;
};
typedef std::unique_ptr<ACE_SSL_Context, HTTP_TLS_Context_Delete> HTTP_TLS_Context;

/// A context for TLS 1.2 and later that verifies servers against the system's certificates, or,
/// when `insecure`, not at all. Null with errno when it cannot be made.
HTTP_TLS_Context http_tls_context(bool insecure);

/// OpenSSL's part of a context, which is the context's; null with errno EPROTO.
ssl_ctx_st* http_tls_native(ACE_SSL_Context* context);

/// TLS (client side) over a connected HTTP_Socket that outlives it. All bytes go through the socket
/// and so keep its time-outs. One thread at a time.
class HTTP_TLS {
public:
  explicit HTTP_TLS(HTTP_Socket& socket) : socket_(socket) {}
  /// Tells the peer, without waiting, that the connection ends, unless it failed before.
  ~HTTP_TLS();
  HTTP_TLS(const HTTP_TLS&) = delete;
  HTTP_TLS& operator=(const HTTP_TLS&) = delete;

  /// 0, or -1 with errno (EPROTO when it is not the socket's) and an error line: what is wrong with
  /// the certificate, or with the handshake.
  int handshake(const HTTP_Peer& peer);

  /// As of the socket. The end is an end only when the peer said so; ECONNRESET otherwise.
  ssize_t recv(void* data, std::size_t size);
  int send(iovec* parts, int count);
  bool quiet();

  /// What OpenSSL reads and writes through: the socket, with the errno of its failure kept.
  int read_socket(char* data, int size);
  int write_socket(const char* data, int size);

private:
  bool set_up(const HTTP_Peer& peer);
  int fail();
  int write(const char* data, std::size_t size);

  HTTP_Socket& socket_;
  ssl_st* ssl_ = nullptr;
  int error_ = 0;        // errno of the socket's last failure, 0 when it was something else's
  bool usable_ = false;  // the handshake is done and nothing has failed since
};

}  // namespace vexa
