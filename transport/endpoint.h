#pragma once

#include <cstdint>
#include <string>

#include "transport/transport_export.h"

namespace transport {

/// Where to listen or connect: `tcp://ADDRESS:PORT`, an IPv6 address in brackets, or `unix://PATH`.
/// A listener may serve other protocols over TCP.
struct TRANSPORT_EXPORT Endpoint {
  enum Kind { TCP, UNIX };
  /// STREAMS: tcp and unix. DOORS: tcps, http, https, ws and wss too.
  enum Schemes { STREAMS, DOORS };

  Kind kind = TCP;
  std::string scheme = "tcp";
  std::string host;        ///< of TCP: an address or a name, without brackets
  std::uint16_t port = 0;  ///< of TCP: 0 picks one
  std::string path;        ///< of UNIX

  /// The URL.
  std::string url() const;

  /// Whether the scheme is one of TLS.
  bool tls() const;

  /// Reads a URL; false with a reason in `error`.
  static bool parse(const std::string& url, Schemes schemes, Endpoint& endpoint,
                    std::string& error);
  static bool parse(const std::string& url, Endpoint& endpoint, std::string& error) {
    return parse(url, STREAMS, endpoint, error);
  }
};

}  // namespace transport
