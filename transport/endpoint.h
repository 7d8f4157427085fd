#pragma once

#include <cstdint>
#include <string>

#include "transport/transport_export.h"

namespace transport {

/// Where to listen or connect: `tcp://ADDRESS:PORT`, an IPv6 address in brackets, or `unix://PATH`.
struct TRANSPORT_EXPORT Endpoint {
  enum Kind { TCP, UNIX };

  Kind kind = TCP;
  std::string host;        ///< of TCP: an address or a name, without brackets
  std::uint16_t port = 0;  ///< of TCP: 0 picks one
  std::string path;        ///< of UNIX

  /// The URL.
  std::string url() const;

  /// Reads a URL; false with a reason in `error`.
  static bool parse(const std::string& url, Endpoint& endpoint, std::string& error);
};

}  // namespace transport
