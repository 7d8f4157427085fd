#pragma once

namespace transport {

/// How messages are told apart on a stream. Whoever connects decides, by the first byte it sends.
enum class Framing {
  LINES,   ///< JSON texts one after the other; each that we send ends in a line feed
  HEADERS  ///< `Content-Length: N`, a blank line, N bytes of JSON
};

}  // namespace transport
