#pragma once

#include "vexa/http_headers.h"
#include "vexa/vexa_export.h"

/// The head of an HTTP response: status, version and header fields. One thread at a time.
class VEXA_EXPORT CGI_Response {
public:
  /// The three digits; 0 before a head was received.
  int status() const { return status_; }
  void status(int status) { status_ = status; }

  /// 1 for HTTP/1.1, 0 for HTTP/1.0.
  int minor_version() const { return minor_version_; }
  void minor_version(int version) { minor_version_ = version; }

  HTTP_Headers& headers() { return headers_; }
  const HTTP_Headers& headers() const { return headers_; }

  /// Back to status 0 of HTTP/1.1 without header fields.
  void reset();

private:
  int status_ = 0;
  int minor_version_ = 1;
  HTTP_Headers headers_;
};
