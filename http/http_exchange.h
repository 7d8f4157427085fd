#pragma once

#include <ace/INET_Addr.h>

#include <cstdint>
#include <string>

#include "http/http_export.h"
#include "vexa/cgi_request.h"

/// The head of a request that was read; the connection's, for as long as the exchange lasts.
struct Http_Request_Head {
  CGI_Request request;  ///< method, target as it came, version, fields
  std::string path;     ///< decoded, without query, dot segments removed: see http/target.h
  std::string query;    ///< as it came, without the '?'
  ACE_INET_Addr local;
  ACE_INET_Addr remote;
  bool tls = false;
};

/// Where an answer goes. On the connection's loop thread, unless said otherwise. One of the two is
/// called once. Neither throws.
class HTTP_EXPORT Http_Reply {
public:
  virtual ~Http_Reply();

  /// A whole answer. `headers` beside Content-Length/Date/Connection; there is no Content-Length in
  /// a 204 or 304. HEAD: the body is counted, not sent.
  virtual void respond(int status, const HTTP_Headers& headers, std::string body) = 0;

  /// An answer whose body is `length` bytes of an open file from `offset`; closes `descriptor`.
  /// Sent piece by piece. HEAD: as with respond().
  virtual void respond_file(int status, const HTTP_Headers& headers, int descriptor,
                            std::uint64_t offset, std::uint64_t length) = 0;
};

namespace http {

/// Answers with an HTTP error as JSON: error_body() of the two, with `headers` beside what says so.
/// A null `text` stands for the standard's phrase.
HTTP_EXPORT void respond_error(Http_Reply& reply, int status, const char* text = nullptr,
                               HTTP_Headers headers = {});

}  // namespace http
