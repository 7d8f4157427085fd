// The HTTP client when its socket's calls or its allocations fail: an exchange succeeds or says why
// not, and the session is good for the next one.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "tests/faults/failing_memory.h"
#include "tests/faults/socket_faults.h"
#include "tests/support/http_exchange.h"
#include "tests/support/scripted_http_server.h"

namespace {

/// The server's thread and the test's own calls meet none.
thread_local Socket_Fault* armed = nullptr;

typedef std::vector<Scripted_HTTP_Server::Connection> Script;

std::string ok(std::size_t size) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n" +
         std::string(size, 'x');
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
  constexpr int itself = -1;
  const struct {
    Socket_Fault::Call call;
    std::vector<int> errors;
    int told;  // 0: the exchange goes on
  } cases[] = {
      {Socket_Fault::CONNECT, {ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EACCES, ENOMEM}, itself},
      {Socket_Fault::READ, {ECONNRESET, ETIMEDOUT, EHOSTUNREACH, ENOMEM, EIO}, itself},
      {Socket_Fault::READ, {EINTR, Socket_Fault::ONE_BYTE}, 0},
      {Socket_Fault::READ, {EAGAIN}, ETIMEDOUT},
      {Socket_Fault::READ, {Socket_Fault::END}, ECONNRESET},
      {Socket_Fault::WRITE, {EPIPE, ECONNRESET, ETIMEDOUT, ENETDOWN, ENOMEM}, itself},
      {Socket_Fault::WRITE, {EINTR, EAGAIN, Socket_Fault::ONE_BYTE}, 0},
  };
  const std::size_t before = descriptors();
  const auto meet = [&](Socket_Fault::Call call, int error, int spared, int expected) {
    SCOPED_TRACE(::testing::Message() << call << " meets " << error << " after " << spared);
    Scripted_HTTP_Server server(Script(2, {{ok(body)}, {ok(body)}, {ok(body)}}));
    const HTTP_Session_var session = session_to(server.port());
    Socket_Fault fault;
    fault.arm(call, error, spared);
    armed = &fault;
    std::size_t size;
    const int told = exchange(*session, size);
    armed = nullptr;
    EXPECT_EQ(1, fault.hits);
    EXPECT_EQ(expected == itself ? error : expected, told);
    EXPECT_TRUE(told != 0 || size == body);
    EXPECT_EQ(0, exchange(*session, size)) << "the next exchange";
    EXPECT_EQ(body, size);
  };
  for (const auto& c : cases) {
    for (const int error : c.errors) {
      meet(c.call, error, 0, c.told);
      if (c.call == Socket_Fault::READ) meet(c.call, error, 1, c.told);
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
