#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <atomic>
#include <memory>
#include <string>

#include "vexa/http_connection.h"
#include "vexa/http_headers.h"
#include "vexa/http_request.h"
#include "vexa/vexa_export.h"

namespace vexa {
struct HTTP_Session_Impl;
}

/// What a client keeps for one HTTP server, named by host, port and TLS: default header fields,
/// cookies (RFC 6265), and the connections that wait to be used again. Made by
/// HTTP_Session_Factory.
///
/// Any thread may send a request or clear the cookies; each exchange has a connection of its own.
/// headers() is for the time before the session is shared.
class VEXA_EXPORT HTTP_Session {
public:
  static void intrusive_add_ref(HTTP_Session* session);
  static void intrusive_remove_ref(HTTP_Session* session);

  /// Begins an exchange: takes a connection that waits, or makes a new one, and sends the head of
  /// `request`, or holds it back until the first bytes of the body go out with it. The exchange's
  /// handle; null with errno, and one error line that says why, when the request cannot be sent as
  /// it stands (EINVAL) or there is no connection.
  ///
  /// Besides the fields of the request go: those of headers() that it does not have, Host,
  /// User-Agent, Accept and Cookie where neither has them, and the framing of the body (see
  /// HTTP_Connection::send()), for which Content-Length and Transfer-Encoding are only asked.
  ///
  /// A waiting connection that turns out to be closed is replaced, and the request sent again, once
  /// and unseen, when nothing of its body has been let go and either its method is idempotent
  /// (RFC 9110 section 9.2.2) or not a byte of it was taken by the old connection.
  HTTP_Connection_var send_request(const HTTP_Request& request);

  /// Forgets all cookies.
  void clear_cookie();

  /// Default fields: sent with every request that has none of that name.
  HTTP_Headers& headers() { return headers_; }
  const HTTP_Headers& headers() const { return headers_; }

  /// The host as given to the factory, an IPv6 address without brackets.
  const std::string& host() const;
  unsigned short port() const;
  bool is_ssl() const;

  /// Host and port as in a URL: "example.org", "[2001:db8::7]:8443"; the scheme's own port is left
  /// out.
  const std::string& authority() const;

private:
  friend class HTTP_Connection;
  friend class HTTP_Session_Factory;

  explicit HTTP_Session(std::unique_ptr<vexa::HTTP_Session_Impl> impl);
  ~HTTP_Session();
  HTTP_Session(const HTTP_Session&) = delete;
  HTTP_Session& operator=(const HTTP_Session&) = delete;

  void write_head(const HTTP_Request& request, const std::string& path, std::string& head);

  std::atomic<int> references_{0};
  HTTP_Headers headers_;
  const std::unique_ptr<vexa::HTTP_Session_Impl> impl_;
};

typedef ACE_Intrusive_Auto_Ptr<HTTP_Session> HTTP_Session_var;
