#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "http/http_export.h"
#include "vexa/cgi_request.h"

namespace http {

/// Reads the requests that come over one connection, one after the other (RFC 9112). Doubtful
/// framing is refused: both lengths, a transfer coding other than "chunked", bare line ends, bad
/// chunk sizes. One thread at a time.
class HTTP_EXPORT Request_Parser {
public:
  enum Outcome {
    MORE,      ///< all bytes are used; more are wanted
    HEAD,      ///< the head is complete
    BODY,      ///< body() has come
    COMPLETE,  ///< the request has ended: begin() before the next
    BAD        ///< status() tells why; nothing can be read any more
  };

  /// Bytes that a head, or the trailers of a body, may have.
  static constexpr std::size_t max_head = 64u << 10;
  /// A head that has more bytes is parsed anew each time: an idle connection does not keep it.
  static constexpr std::size_t max_kept_head = 1024;

  /// Head after head is put into `request`, which stays.
  explicit Request_Parser(CGI_Request& request);
  ~Request_Parser();

  /// The next request begins. With `keep` it may have the very head of this one, as those of one
  /// client mostly do, byte for byte: then it is not parsed, `request` stays as it is, and
  /// repeated() tells of it. So `request` must not have been changed.
  void begin(bool keep = false);

  /// Takes bytes, `used` of them, up to what the outcome tells. Throws std::bad_alloc.
  Outcome feed(const char* data, std::size_t length, std::size_t& used);

  /// A piece of the body, until the next feed().
  std::string_view body() const;
  /// Whether the head that is complete is the one before, in the same `request`.
  bool repeated() const;
  /// What the connection is to do after the request.
  bool keep_alive() const;
  /// Whether a body is announced; one of `length` bytes if that is known, else npos.
  bool has_body() const;
  std::size_t content_length() const;
  /// Whether any byte of the request has come.
  bool begun() const;
  /// What a bad request is to be answered with.
  int status() const { return status_; }

private:
  struct Impl;

  void begin_anew();
  bool repeats(const char* data, std::size_t length);
  void keep_head(const char* data, std::size_t length);
  Outcome feed_new(const char* data, std::size_t length, std::size_t& used);
  Outcome feed_repeated(const char* data, std::size_t length, std::size_t& used);
  Outcome parse(const char* data, std::size_t length, std::size_t& used);
  Outcome feed_held(const char* data, std::size_t length, std::size_t& used);
  Outcome hold();
  Outcome head_complete();
  Outcome bad(int status);

  std::unique_ptr<Impl> impl_;
  CGI_Request& request_;
  int status_ = 0;
};

}  // namespace http
