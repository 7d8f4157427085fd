#include "vexa/cgi_request.h"

#include <new>

const char* http_method_name(int method) {
  switch (method) {
    case HTTP_METHOD_CONNECT:
      return "CONNECT";
    case HTTP_METHOD_DELETE:
      return "DELETE";
    case HTTP_METHOD_GET:
      return "GET";
    case HTTP_METHOD_HEAD:
      return "HEAD";
    case HTTP_METHOD_OPTIONS:
      return "OPTIONS";
    case HTTP_METHOD_PATCH:
      return "PATCH";
    case HTTP_METHOD_POST:
      return "POST";
    case HTTP_METHOD_PUT:
      return "PUT";
    case HTTP_METHOD_TRACE:
      return "TRACE";
    default:
      return nullptr;
  }
}

void CGI_Request::uri(const char* uri) {
  // An empty URI is one that no session sends.
  try {
    uri_.assign(uri == nullptr ? "" : uri);
  } catch (const std::bad_alloc&) {
    uri_.clear();
  }
}

void CGI_Request::uri(const std::string& uri) {
  try {
    uri_ = uri;
  } catch (const std::bad_alloc&) {
    uri_.clear();
  }
}

void CGI_Request::reset() {
  method_ = HTTP_METHOD_GET;
  uri_ = "/";  // one character: no allocation
  minor_version_ = 1;
  headers_.clear();
}
