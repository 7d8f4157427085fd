#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "vexa/cgi_request.h"

namespace http {

/// What tells one state of a file from another (RFC 9110 section 8.8).
struct Validators {
  std::string tag;       ///< the entity tag's text with its quotes, without "W/"
  bool weak = false;     ///< the file may have changed without a change of these
  std::time_t modified;  ///< not in the future

  std::string etag() const { return weak ? "W/" + tag : tag; }
};

/// 0 when a request for a file with these validators is to be served; otherwise 304 or 412, by the
/// fields If-Match, If-Unmodified-Since, If-None-Match and If-Modified-Since in the order of RFC
/// 9110 section 13.2.2. A date that cannot be read counts as not there. For GET and HEAD.
int check_preconditions(const CGI_Request& request, const Validators& validators, std::time_t now);

/// Whether a Range field counts: there is no If-Range, or it names this very state, strongly.
bool if_range_holds(const CGI_Request& request, const Validators& validators, std::time_t now);

}  // namespace http
