#pragma once

#include "vexa/cgi_response.h"
#include "vexa/http_base.h"

/// A response head as HTTP_Connection::recv_header() fills it. One thread at a time.
class HTTP_Response : public HTTP_Base<CGI_Response> {
public:
  /// Whether a body follows: not with 204, 304, an answer to HEAD, or a Content-Length of 0. A
  /// chunked body and one that lasts until the connection closes count, though they may be empty.
  bool has_body() const { return has_body_; }
  void has_body(bool has) { has_body_ = has; }

  void reset() {
    HTTP_Base<CGI_Response>::reset();
    has_body_ = false;
  }

private:
  bool has_body_ = false;
};
