#pragma once

#include <string>
#include <vector>

#include "http/http_exchange.h"

namespace http {

/// Keeps out pages of other sites that a user's browser has open. Read by any thread once it is
/// filled.
struct HTTP_EXPORT Origin_Check {
  std::vector<std::string> allow_origins;  ///< as browsers send them: "https://site.example"; "*"
  std::vector<std::string> allow_hosts;    ///< names, without a port; "*"

  /// Whether the Host is one of ours: an IP address, localhost, or an allowed name. Another name
  /// that leads here may be one that its owner has made lead here (DNS rebinding).
  bool host_allowed(const Http_Request_Head& head) const;
  /// Whether the Origin, if there is one, is this very server or allowed.
  bool origin_allowed(const Http_Request_Head& head) const;
  /// Whether it is another site that is allowed: then the answer must say so.
  bool is_foreign(const Http_Request_Head& head) const;
};

}  // namespace http
