#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "vexa/http_response.h"
#include "vexa/http_stream.h"

namespace vexa {

/// Reads the responses that come over one connection, one after the other: head(), then body()
/// until done(). What was read ahead is kept. After a failure the connection is of no more use. One
/// thread at a time.
class HTTP_Response_Reader {
public:
  static constexpr std::size_t max_head = 64u << 10;  // bytes, of each interim head too
  static constexpr int max_interim_heads = 100;

  HTTP_Response_Reader();
  ~HTTP_Response_Reader();
  HTTP_Response_Reader(const HTTP_Response_Reader&) = delete;
  HTTP_Response_Reader& operator=(const HTTP_Response_Reader&) = delete;

  /// Whether the buffers could be made.
  bool ok() const { return impl_ != nullptr; }

  /// Receives the head of the next response, whatever interim ones come before, and adds it to
  /// `response`; `no_body` says that the request was HEAD. 0, or -1 with errno as
  /// HTTP_Connection::recv_header() says; EPROTO and EMSGSIZE with a warning line.
  int head(HTTP_Stream& stream, bool no_body, HTTP_Response& response);

  /// Whether any byte of the response that is awaited has come.
  bool started() const;

  /// Receives 1 to `size` bytes of the body; 0 at its end; -1 with errno.
  ssize_t body(HTTP_Stream& stream, char* data, std::size_t size);

  /// Whether the response has been given out whole.
  bool done() const;

  /// Whether another request may follow on the connection. Meant for when done().
  bool reusable() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vexa
