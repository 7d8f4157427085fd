#pragma once

#include <string>

#include "vexa/http_headers.h"
#include "vexa/vexa_export.h"

enum HTTP_Method : int {
  HTTP_METHOD_UNKNOWN = 0,
  HTTP_METHOD_CONNECT = 1,
  HTTP_METHOD_DELETE = 2,
  HTTP_METHOD_GET = 3,
  HTTP_METHOD_HEAD = 4,
  HTTP_METHOD_OPTIONS = 5,
  HTTP_METHOD_PATCH = 6,
  HTTP_METHOD_POST = 8,
  HTTP_METHOD_PUT = 9,
  HTTP_METHOD_TRACE = 10
};

/// The name of a method as it stands in a request line; null when there is no such method.
VEXA_EXPORT const char* http_method_name(int method);

/// The head of an HTTP request: method, URI, version and header fields. One thread at a time.
class VEXA_EXPORT CGI_Request {
public:
  int method() const { return method_; }
  void method(int method) { method_ = method; }

  /// The target as it stands in the request line: a path that begins with '/', with the query; "*"
  /// for OPTIONS. Setting stores any text (null: ""): a session refuses what it cannot send.
  const char* uri() const { return uri_.c_str(); }
  const std::string& uri_text() const { return uri_; }
  void uri(const char* uri);
  void uri(const std::string& uri);

  /// 1 for HTTP/1.1, 0 for HTTP/1.0.
  int minor_version() const { return minor_version_; }
  void minor_version(int version) { minor_version_ = version; }

  HTTP_Headers& headers() { return headers_; }
  const HTTP_Headers& headers() const { return headers_; }

  /// Back to GET "/" of HTTP/1.1 without header fields.
  void reset();

private:
  int method_ = HTTP_METHOD_GET;
  std::string uri_ = "/";
  int minor_version_ = 1;
  HTTP_Headers headers_;
};
