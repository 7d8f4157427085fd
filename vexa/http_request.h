#pragma once

#include "vexa/cgi_request.h"
#include "vexa/http_base.h"
#include "vexa/vexa_export.h"

/// A request to be sent by HTTP_Session::send_request(), which does not change it: it can be sent
/// again. One thread at a time.
class VEXA_EXPORT HTTP_Request : public HTTP_Base<CGI_Request> {
public:
  /// `method` is an HTTP_Method, `uri` a path with its query. With `encode` the bytes that a URI
  /// may not hold (blanks, quotes, what is not ASCII; RFC 3986 section 2) are percent-encoded,
  /// except control characters, which no session sends; otherwise it stands as it is. A '%' always
  /// stays.
  explicit HTTP_Request(int method = HTTP_METHOD_GET, const char* uri = "/", bool encode = false);
};
