#pragma once

#include <ace/config-all.h>

#include "vexa/http_session.h"
#include "vexa/vexa_export.h"

ACE_BEGIN_VERSIONED_NAMESPACE_DECL
class ACE_SSL_Context;
ACE_END_VERSIONED_NAMESPACE_DECL

/// The address families that a session may connect over.
enum HTTP_Session_Family : int {
  HTTP_SESSION_IPV4 = 1,
  HTTP_SESSION_IPV6 = 2,
  HTTP_SESSION_ANY_FAMILY = 3
};

/// A bit set; 0 is the plain default.
enum HTTP_Session_Flag : int {
  HTTP_SESSION_NO_KEEP_ALIVE = 1,  ///< a connection for each request, with Connection: close
  HTTP_SESSION_NO_COOKIES = 2,     ///< cookies are neither kept nor sent
  HTTP_SESSION_TLS_1_3 = 4,        ///< refuses TLS 1.2
  HTTP_SESSION_ANY_HOST_NAME = 8   ///< the certificate may be another host's
};

/// Makes sessions.
class VEXA_EXPORT HTTP_Session_Factory {
public:
  /// A session for a server; null with errno EINVAL (an argument makes no sense), EPROTO (no TLS
  /// context), or ENOMEM, and an error line. Nothing is connected yet.
  ///
  /// @param host          a name, or an address (IPv6 with or without brackets)
  /// @param port          1 to 65535
  /// @param ssl           HTTPS: TLS 1.2 or later
  /// @param local_address the numeric address to connect from; null: the system's choice
  /// @param families      HTTP_Session_Family: which addresses of the host may be used, in the
  ///   order in which the system's resolver gives them; 3: all
  /// @param ssl_context   used as it is, with its trust store, its mode of verification, its client
  ///   certificate; borrowed, it must outlive the session. Where it verifies the server, the host
  ///   name is checked too, unless flags say otherwise. Null: the server must prove its name by a
  ///   chain to the certificates of the system (/etc/ssl/certs, or what SSL_CERT_FILE and
  ///   SSL_CERT_DIR name)
  /// @param insecure      with a null ssl_context: the server's certificate is not looked at. Said
  ///   by a warning line each time a session is made so
  /// @param send_timeout, recv_timeout seconds, 0 none: the longest wait until the server takes, or
  ///   sends, some bytes. Each wait starts anew
  /// @param conn_timeout  seconds, 0 none: the longest wait for a TCP connection to one address,
  ///   and for all of a TLS handshake. Without it the system's limit holds for the one,
  ///   send_timeout and recv_timeout for the waits of the other
  /// @param flags         HTTP_Session_Flag
  static HTTP_Session_var create(const char* host, unsigned short port, bool ssl,
                                 const char* local_address, int families,
                                 ACE_SSL_Context* ssl_context, bool insecure, int send_timeout,
                                 int recv_timeout, int conn_timeout, int flags);
};
