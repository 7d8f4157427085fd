#pragma once

#include <functional>
#include <string>

#include "http/http_exchange.h"
#include "http/http_export.h"

namespace http {

/// One request that is to be answered: at once, through Http_Reply, or later.
class HTTP_EXPORT Exchange : public Http_Reply {
public:
  ~Exchange() override;

  /// Answers later: once, and from any thread. Nothing happens when the connection has gone.
  typedef std::function<void(int status, HTTP_Headers headers, std::string body)> Later;

  /// In place of an answer now. Throws std::bad_alloc.
  virtual Later defer() = 0;
};

/// What an HTTP listener serves beside JSON-RPC. On the connection's loop thread; any exception is
/// answered 500.
class HTTP_EXPORT Site {
public:
  virtual ~Site();

  /// Whether the body of the request is wanted: collected whole before it is answered. Else it is
  /// thrown away.
  virtual bool wants_body(const Http_Request_Head& head) const = 0;
  /// What is answered may take `head` and `body` away.
  virtual void answer(Http_Request_Head& head, std::string& body, Exchange& exchange) = 0;
};

}  // namespace http
