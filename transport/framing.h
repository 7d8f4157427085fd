#pragma once

namespace transport {

/// How messages are told apart. On a stream whoever connects decides, by the first byte it sends.
enum class Framing {
  LINES,     ///< JSON texts one after the other; each that we send ends in a line feed
  HEADERS,   ///< `Content-Length: N`, a blank line, N bytes of JSON
  MESSAGES,  ///< what carries the stream keeps them apart
  BODIES     ///< each is the body of a request, or of the response to one: only answers go out
};

}  // namespace transport
