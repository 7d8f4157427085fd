#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>

#include "transport/door.h"
#include "transport/opened.h"
#include "transport/socket_stream.h"
#include "transport/transport_export.h"

namespace transport {

/// What a listener shows of itself, and asks of its peers, in TLS 1.2 and later (RFC 5246, RFC
/// 8446). Read by any thread once it is made.
class TRANSPORT_EXPORT Tls_Server {
public:
  /// Certificate chain and private key, PEM files; with `client_ca`, which may be empty, a peer
  /// must show a certificate that one of that file signed. Null with a reason in `error`.
  static std::shared_ptr<Tls_Server> make(const std::string& certificate, const std::string& key,
                                          const std::string& client_ca, std::string& error);

  boost::asio::ssl::context& context() { return context_; }

private:
  Tls_Server();

  boost::asio::ssl::context context_;
};

/// Shakes hands over `socket`, whose loop's thread this is, for at most the stall time; then the
/// door serves what comes over TLS. A peer that fails costs nothing but a line of the log.
void accept_tls(const std::shared_ptr<Tls_Server>& tls, const std::shared_ptr<Door>& door,
                Socket_Stream::Socket socket, Opened opened);

}  // namespace transport
