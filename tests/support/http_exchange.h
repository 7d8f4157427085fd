#pragma once

#include <cerrno>
#include <cstddef>

#include "vexa/http_session.h"
#include "vexa/http_session_factory.h"

/// A session to a server on 127.0.0.1, without TLS; `timeout` is that of each wait, in seconds.
inline HTTP_Session_var session_to(unsigned short port, int timeout = 5, int flags = 0) {
  return HTTP_Session_Factory::create("127.0.0.1", port, false, nullptr, 3, nullptr, false, timeout,
                                      timeout, timeout, flags);
}

/// One exchange: 0 and the size of the body, or the errno. Costs no memory of its own.
inline int exchange(HTTP_Session& session, const HTTP_Request& request, HTTP_Response& response,
                    std::size_t& size) {
  static char data[4096];
  size = 0;
  const HTTP_Connection_var connection = session.send_request(request);
  if (connection.get() == nullptr) return errno;
  if (connection->recv_header(response) == -1) return connection->error();
  while (connection->state() != HTTP_SOCK_STATE_CONTENT_RECEIVED) {
    const ssize_t got = connection->recv(data, sizeof data);
    if (got == -1) return connection->error();
    size += static_cast<std::size_t>(got);
  }
  return 0;
}
