// The HTTP client when its socket's calls or its allocations fail: an exchange succeeds or says why
// not, and the session is good for the next one.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "tests/faults/failing_memory.h"
#include "tests/faults/socket_faults.h"
#include "tests/support/scripted_http_server.h"
#include "vexa/http_session.h"
#include "vexa/http_session_factory.h"

namespace {

/// The server's thread and the test's own calls meet none.
thread_local Socket_Fault* armed = nullptr;

typedef std::vector<Scripted_HTTP_Server::Connection> Script;

std::string ok(std::size_t size) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n" +
         std::string(size, 'x');
}

HTTP_Session_var session_to(unsigned short port) {
  return HTTP_Session_Factory::create("127.0.0.1", port, false, nullptr, 3, nullptr, false, 5, 5, 5,
                                      0);
}

/// One exchange: 0 and the size of the body, or the errno.
int exchange(HTTP_Session& session, const HTTP_Request& request, HTTP_Response& response,
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

int exchange(HTTP_Session& session, std::size_t& size) {
  HTTP_Response response;
  return exchange(session, HTTP_Request(HTTP_METHOD_GET, "/"), response, size);
}

std::size_t descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST(HttpFaultTest, AFaultEndsOneExchangeAtTheMost) {
  const Quiet_Log quiet;
  constexpr std::size_t body = 30000;
  const struct {
    Socket_Fault::Call call;
    int error;
    int told;  // 0: the exchange goes on
  } cases[] = {
      {Socket_Fault::CONNECT, ECONNREFUSED, ECONNREFUSED},
      {Socket_Fault::CONNECT, ETIMEDOUT, ETIMEDOUT},
      {Socket_Fault::CONNECT, ENETUNREACH, ENETUNREACH},
      {Socket_Fault::CONNECT, EADDRNOTAVAIL, EADDRNOTAVAIL},
      {Socket_Fault::CONNECT, EACCES, EACCES},
      {Socket_Fault::CONNECT, ENOMEM, ENOMEM},
      {Socket_Fault::READ, EINTR, 0},
      {Socket_Fault::READ, Socket_Fault::ONE_BYTE, 0},
      {Socket_Fault::READ, Socket_Fault::END, ECONNRESET},
      {Socket_Fault::READ, EAGAIN, ETIMEDOUT},
      {Socket_Fault::READ, ECONNRESET, ECONNRESET},
      {Socket_Fault::READ, ETIMEDOUT, ETIMEDOUT},
      {Socket_Fault::READ, EHOSTUNREACH, EHOSTUNREACH},
      {Socket_Fault::READ, ENOMEM, ENOMEM},
      {Socket_Fault::READ, ENOBUFS, ENOBUFS},
      {Socket_Fault::READ, EIO, EIO},
      {Socket_Fault::WRITE, EINTR, 0},
      {Socket_Fault::WRITE, EAGAIN, 0},
      {Socket_Fault::WRITE, Socket_Fault::ONE_BYTE, 0},
      {Socket_Fault::WRITE, EPIPE, EPIPE},
      {Socket_Fault::WRITE, ECONNRESET, ECONNRESET},
      {Socket_Fault::WRITE, ETIMEDOUT, ETIMEDOUT},
      {Socket_Fault::WRITE, ENETDOWN, ENETDOWN},
      {Socket_Fault::WRITE, ENOBUFS, ENOBUFS},
      {Socket_Fault::WRITE, ENOMEM, ENOMEM},
  };
  const std::size_t before = descriptors();
  for (const auto& c : cases) {
    for (int spared = 0; spared < (c.call == Socket_Fault::READ ? 2 : 1); ++spared) {
      SCOPED_TRACE(::testing::Message()
                   << "call " << c.call << ", error " << c.error << " after " << spared);
      {
        Scripted_HTTP_Server server(Script(2, {{ok(body)}, {ok(body)}, {ok(body)}}));
        const HTTP_Session_var session = session_to(server.port());
        Socket_Fault fault;
        fault.arm(c.call, c.error, spared);
        armed = &fault;
        std::size_t size;
        const int told = exchange(*session, size);
        armed = nullptr;
        EXPECT_EQ(1, fault.hits);
        EXPECT_EQ(c.told, told) << std::strerror(told);
        if (c.told == 0) {
          EXPECT_EQ(body, size);
        }
        EXPECT_EQ(0, exchange(*session, size)) << "the next exchange";
        EXPECT_EQ(body, size);
      }
      EXPECT_EQ(before, descriptors());
    }
  }
}

TEST(HttpFaultTest, AnExchangeWithoutMemorySaysSo) {
  Scripted_HTTP_Server server(Script(2000, {{ok(10)}, {ok(10)}}));
  const HTTP_Request request(HTTP_METHOD_GET,
                             "/a/path/that/is/long/enough/not/to/be/kept/in/place");
  const std::size_t before = descriptors();
  at_every_allocation(
      [&](Failing_Memory& memory) {
        int told = -1;
        std::size_t size = 0;
        HTTP_Session_var session;
        HTTP_Response response;
        memory([&] {
          errno = 0;
          session = session_to(server.port());
          told = session.get() != nullptr ? exchange(*session, request, response, size) : errno;
        });
        EXPECT_TRUE((told == 0 && size == 10) || (memory.hit() && told == ENOMEM)) << told;
        if (session.get() == nullptr) session = session_to(server.port());
        EXPECT_EQ(0, exchange(*session, request, response, size)) << "the next exchange";
      },
      BALANCE_IGNORED);
  EXPECT_GE(before + 1, descriptors());
}

}  // namespace

Socket_Fault* armed_socket_fault() { return armed; }
