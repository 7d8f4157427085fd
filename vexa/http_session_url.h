#pragma once

#include <string>

#include "vexa/http_request.h"
#include "vexa/http_session.h"
#include "vexa/vexa_export.h"

/// The URL of a request as text that is safe to show: "https://example.org:8443/path?query".
/// Control characters appear as '?'. Only the URI when there is no session.
class VEXA_EXPORT HTTP_Session_URL {
public:
  HTTP_Session_URL(const HTTP_Session_var& session, const HTTP_Request& request);
  const char* c_str() const { return text_.c_str(); }

private:
  std::string text_;
};
