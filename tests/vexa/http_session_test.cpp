#include "vexa/http_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/http_exchange.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_http_server.h"
#include "vexa/http_session_url.h"

namespace {

typedef Scripted_Reply Reply;

const char ok[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";

/// The rest of the exchange: the status, ":" and the body where there is one, the name of the
/// error.
std::string receive(const HTTP_Connection_var& connection, std::size_t block = 4096) {
  HTTP_Response response;
  if (connection.get() == nullptr) return ::strerrorname_np(errno);
  if (connection->recv_header(response) == -1) {
    EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, connection->state());
    return ::strerrorname_np(connection->error());
  }
  std::string outcome = std::to_string(response.status());
  if (response.has_body()) outcome += ':';
  EXPECT_TRUE(response.has_body() || connection->state() == HTTP_SOCK_STATE_CONTENT_RECEIVED);
  std::vector<char> data(block);
  while (connection->state() != HTTP_SOCK_STATE_CONTENT_RECEIVED) {
    const ssize_t got = connection->recv(data.data(), data.size());
    if (got == -1) return outcome + ' ' + ::strerrorname_np(connection->error());
    EXPECT_TRUE(got > 0 || connection->state() == HTTP_SOCK_STATE_CONTENT_RECEIVED);
    outcome.append(data.data(), static_cast<std::size_t>(got));
  }
  return outcome;
}

std::string call(const HTTP_Session_var& session) {
  return receive(session->send_request(HTTP_Request(HTTP_METHOD_GET, "/")));
}

std::string repeated(const char* text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

}  // namespace

TEST(HttpSessionTest, EveryKindOfResponseIsReadHoweverItIsCut) {
  const std::string good = "HTTP/1.1 200 OK\r\n",
                    chunked = good + "Transfer-Encoding: chunked\r\n\r\n",
                    two = "Content-Length: 2\r\n", big(300000, 'x'), long_field(100000, 'x');
  const struct {
    std::string text, outcome;
    bool kept;  // whether the connection serves the next request too
    int method = HTTP_METHOD_GET;
  } cases[] = {
      {"HTTP/1.1 404 \r\n" + two + "Connection: close\r\n\r\nab", "404:ab", false},
      {good + "Content-Length: 0\r\n\r\n", "200", true},
      {"HTTP/1.1 204 No Content\r\n\r\n", "204", true},
      {"HTTP/1.1 304 Not Modified\r\n" + two + "\r\n", "304", true},
      {good + two + "\r\n", "200", true, HTTP_METHOD_HEAD},
      {chunked, "200", true, HTTP_METHOD_HEAD},
      {"HTTP/1.0 200 OK\r\n" + two + "\r\n{}", "200:{}", false},
      {"HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\n" + two + "\r\n{}", "200:{}", true},
      {good + "Keep-Alive: max=9, timeout = 1\r\n" + two + "\r\n{}", "200:{}", false},
      {chunked + "3\r\nabc\r\n00A;name=\"v;\\\"\";x\r\n0123456789\r\n0\r\n\r\n",
       "200:abc0123456789", true},
      {chunked + "1\r\nx\r\n0;last\r\nX-Sum: 1\r\nX-More: 2\r\n\r\n", "200:x", true},
      {chunked + "0\r\n\r\n", "200:", true},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: a\r\n\r\n" + std::string(ok),
       "200:{}", true},
      {good + two + "\r\na", "200:a ECONNRESET", false},
      {chunked + "3\r\nab", "200:ab ECONNRESET", false},
      {chunked + "3\r\nabc\r\n", "200:abc ECONNRESET", false},
      {chunked + "3\r\nabcd\r\n0\r\n\r\n", "200:abc EPROTO", false},
      {chunked + "3\r\nabc\r\nx\r\n", "200:abc EPROTO", false},
      {"HTTP/1.1 200 OK\r\nContent-Le", "ECONNRESET", false},
      {"SSH-2.0-OpenSSH_9.2\r\n\r\n", "EPROTO", false},
      {"HTTP/2.0 200 OK\r\n\r\n", "EPROTO", false},
      {good + two + "Content-Length: 3\r\n\r\nab", "EPROTO", false},
      {good + two + "Transfer-Encoding: chunked\r\n\r\nab", "EPROTO", false},
      {"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
       "EPROTO", false},
      {good + "Transfer-Encoding: foo\r\n" + two + "\r\n{}", "EPROTO", false},
      {"HTTP/1.1 099 OK\r\n" + two + "\r\n{}", "EPROTO", false},
      {"HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n", "EPROTO", false},
      {repeated("HTTP/1.1 100 Continue\r\n\r\n", 200), "EPROTO", false},
      {good + "X: " + std::string(65495, 'x') + "\r\n" + two + "\r\n{}", "EMSGSIZE", false},
      {good + "X: " + std::string(65490, 'x') + "\r\n" + two + "\r\n{}", "200:{}", true},
      {good + repeated("X: y\r\n", 20000), "EMSGSIZE", false},
      {chunked + "1;" + long_field + "\r\n", "200: EMSGSIZE", false},
      {chunked + "0\r\nX: " + long_field, "200: EMSGSIZE", false},
      {good + "Content-Length: 300000\r\n\r\n" + big, "200:" + big, true},
      {chunked + "493e0\r\n" + big + "\r\n0\r\n\r\n", "200:" + big, true},
      {good + "\r\n" + big, "200:" + big, false},
  };
  Log_Capture log;
  for (const auto& c : cases) {
    for (const std::size_t piece : {std::size_t(0), c.text.size() < 3000 ? std::size_t(1) : 4097}) {
      for (const std::size_t block : {1, 4096, 100000}) {
        if (block == 1 && c.text.size() > 200000) continue;
        SCOPED_TRACE(c.text.substr(0, 120) + " in pieces of " + std::to_string(piece));
        const Reply::Then then = c.kept ? Reply::keep : Reply::close;
        Scripted_HTTP_Server server({{{c.text, then, piece}, {ok}}, {{ok}}});
        const HTTP_Session_var session = session_to(server.port());
        const HTTP_Request request(c.method, "/");
        EXPECT_EQ(c.outcome, receive(session->send_request(request), block));
        EXPECT_EQ("200:{}", call(session));
        EXPECT_EQ(c.kept ? 1 : 2, server.connections());
      }
    }
  }
}

TEST(HttpSessionTest, RequestsAreFramedAsTheySay) {
  const struct {
    int method;
    const char* header;
    const char* value;
    std::vector<const char*> body;
    const char* framing;  // the rest of the request, from the last header line on
  } cases[] = {
      {HTTP_METHOD_GET, nullptr, nullptr, {}, "q=0.5\r\n\r\n"},
      {HTTP_METHOD_GET, "Content-Length", "5", {}, "q=0.5\r\n\r\n"},
      {HTTP_METHOD_DELETE, nullptr, nullptr, {"{}"}, "g: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n"},
      {HTTP_METHOD_DELETE, "Content-Length", "2", {"{}"}, "Content-Length: 2\r\n\r\n{}"},
      {HTTP_METHOD_POST, "Content-Length", "7", {}, "Content-Length: 0\r\n\r\n"},
      {HTTP_METHOD_POST, "Content-Length", "3", {"[", "1", "]"}, "Content-Length: 3\r\n\r\n[1]"},
      {HTTP_METHOD_PUT, "Transfer-Encoding", "chunked", {}, "g: chunked\r\n\r\n0\r\n\r\n"},
      {HTTP_METHOD_PATCH, "X", "y", {"1", "", "2"}, "g: chunked\r\n\r\n2\r\n12\r\n0\r\n\r\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.framing);
    Scripted_HTTP_Server server({{{ok}}});
    const HTTP_Session_var session = session_to(server.port());
    HTTP_Request request(c.method, "/path?q");
    if (c.header != nullptr) request.headers().put(c.header, c.value);
    const HTTP_Connection_var connection = session->send_request(request);
    for (const char* text : c.body) connection->send(text, std::strlen(text));
    EXPECT_EQ("200:{}", receive(connection));
    const std::string sent = server.request();
    const std::string end(c.framing);
    ASSERT_LT(end.size(), sent.size());
    EXPECT_EQ(end, sent.substr(sent.size() - end.size()));
    EXPECT_EQ(std::string(http_method_name(c.method)) +
                  " /path?q HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\n",
              sent.substr(0, sent.find("\r\n", sent.find("Host")) + 2));
    EXPECT_NE(std::string::npos, sent.find("\r\nUser-Agent: "));
  }
}

TEST(HttpSessionTest, LargeBodiesGoOutInPiecesThatTheServerPutsTogether) {
  Scripted_HTTP_Server server({{{ok}}});
  const HTTP_Session_var session = session_to(server.port());
  const HTTP_Connection_var connection = session->send_request(HTTP_Request(HTTP_METHOD_POST, "/"));
  std::string body;
  for (const std::size_t size : {15, 16370, 16384, 16385, 1450861}) {
    const std::string part(size, static_cast<char>('a' + body.size() % 7));
    EXPECT_EQ(static_cast<ssize_t>(size), connection->send(part.data(), size));
    body += part;
  }
  EXPECT_EQ("200:{}", receive(connection));
  const std::string sent = server.request();
  std::string taken;
  for (std::size_t at = sent.find("\r\n\r\n") + 4; at < sent.size();) {
    const std::size_t length = std::strtoul(sent.c_str() + at, nullptr, 16);
    at = sent.find("\r\n", at) + 2;
    taken += sent.substr(at, length);
    at += length + 2;
  }
  EXPECT_TRUE(body == taken) << taken.size();
}

TEST(HttpSessionTest, ABodyThatDoesNotFitItsRequestIsRefused) {
  const struct {
    int method;
    const char* length;
    const char* body;
    bool at_send;
  } cases[] = {{HTTP_METHOD_GET, nullptr, "x", true},
               {HTTP_METHOD_POST, "1", "xy", true},
               {HTTP_METHOD_POST, "3", "xy", false}};
  Log_Capture log;
  for (const auto& c : cases) {
    Scripted_HTTP_Server server({{{ok}}});
    HTTP_Request request(c.method, "/");
    if (c.length != nullptr) request.headers().put("Content-Length", c.length);
    const HTTP_Connection_var connection = session_to(server.port())->send_request(request);
    EXPECT_EQ(c.at_send, connection->send(c.body, std::strlen(c.body)) == -1);
    EXPECT_EQ("EINVAL", receive(connection));
  }
}

TEST(HttpSessionTest, ARequestThatWouldBreakItsLinesIsNotSent) {
  using namespace std::string_literals;
  const Log_Capture quiet;
  Scripted_HTTP_Server server({{{ok}}});
  const HTTP_Session_var session = session_to(server.port());
  std::vector<HTTP_Request> requests;
  for (const int method : {static_cast<int>(HTTP_METHOD_CONNECT), 7}) {
    requests.emplace_back(method, "/");
  }
  for (const std::string& uri : {"/a\r\nX: y"s, "/a b"s, "/\0"s, "a"s, "/a#b"s, ""s}) {
    requests.emplace_back().uri(uri);
  }
  requests.emplace_back().minor_version(0);
  requests.emplace_back().headers().put("X", "a\r\nY: b");
  for (const char* length : {"", "-1", "+1", "1x", "18446744073709551616"}) {
    requests.emplace_back(HTTP_METHOD_POST, "/").headers().put("Content-Length", length);
  }
  for (const HTTP_Request& request : requests) {
    Log_Capture log;
    EXPECT_EQ(nullptr, session->send_request(request).get());
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(1u, log.count("HTTP request refused, ")) << request.uri();
    EXPECT_EQ(1u, log.size());
  }
  EXPECT_EQ(0, server.connections());
  EXPECT_STREQ("/a%20b%22%C3%A9%41\n",
               HTTP_Request(HTTP_METHOD_GET, "/a b\"\xC3\xA9%41\n", true).uri());
  EXPECT_EQ(server.url() + "/a??X: y", std::string(HTTP_Session_URL(session, requests[2]).c_str()));
}

TEST(HttpSessionTest, DefaultFieldsGoWhereTheRequestHasNone) {
  Scripted_HTTP_Server server({{{ok}, {ok}}});
  const HTTP_Session_var session = session_to(server.port());
  session->headers().put("X-Key", "default");
  session->headers().put(HTTP_HEAD_ACCEPT, "text/plain");
  EXPECT_EQ("200:{}", call(session));
  EXPECT_NE(std::string::npos, server.request().find("X-Key: default\r\nAccept: text/plain\r\n"));
  HTTP_Request request;
  request.headers().put("x-key", "own");
  request.headers().put("Host", "other");
  receive(session->send_request(request));
  EXPECT_NE(std::string::npos, server.request().find("\r\nx-key: own\r\nHost: other\r\n"));
  EXPECT_EQ(std::string::npos, server.request().find("default"));
}

TEST(HttpSessionTest, AConnectionThatTheServerClosedIsReplacedWhereNothingCanBeDoneTwice) {
  enum { gone, gone_with_request, reset };
  const struct {
    int how;
    int method;
    std::size_t body;
    bool served;
  } cases[] = {
      {gone, HTTP_METHOD_GET, 0, true},
      {gone, HTTP_METHOD_POST, 100000, true},
      {gone_with_request, HTTP_METHOD_GET, 0, true},
      {gone_with_request, HTTP_METHOD_PUT, 5, true},
      {gone_with_request, HTTP_METHOD_POST, 5, false},
      {gone_with_request, HTTP_METHOD_PUT, 20000, false},
      {reset, HTTP_METHOD_DELETE, 0, true},
      {reset, HTTP_METHOD_POST, 0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(http_method_name(c.method)) + " after " + std::to_string(c.how));
    std::vector<Scripted_HTTP_Server::Connection> script = {{{ok}}, {{ok}}};
    if (c.how == gone) script[0][0].then = Reply::close;
    if (c.how != gone) script[0].push_back({"", c.how == reset ? Reply::reset : Reply::close});
    Scripted_HTTP_Server server(script);
    const HTTP_Session_var session = session_to(server.port());
    EXPECT_EQ("200:{}", call(session));
    if (c.how == gone) ::usleep(20000);  // its end is on the way
    const HTTP_Connection_var connection = session->send_request(HTTP_Request(c.method, "/"));
    ASSERT_NE(nullptr, connection.get());
    const std::string body(c.body, 'x');
    const bool sent = connection->send(body.data(), body.size()) != -1;
    const std::string outcome = receive(connection);
    EXPECT_TRUE(c.served ? outcome == "200:{}" : !sent || outcome == "ECONNRESET") << outcome;
    EXPECT_EQ(c.served ? 2 : 1, server.connections());
  }
}

TEST(HttpSessionTest, ARequestOfWhichTheOldConnectionTookNothingIsSentAgainWhateverItsMethod) {
  for (const std::size_t size : {0, 5, 100000}) {
    Scripted_HTTP_Server server({{{ok}}, {{ok}}});
    const HTTP_Session_var session = session_to(server.port());
    EXPECT_EQ("200:{}", call(session));
    const HTTP_Connection_var connection =
        session->send_request(HTTP_Request(HTTP_METHOD_POST, "/"));
    server.cut();
    const std::string body(size, 'x');
    EXPECT_EQ(static_cast<ssize_t>(size), connection->send(body.data(), size));
    EXPECT_EQ("200:{}", receive(connection));
    const std::string sent = server.request();
    EXPECT_EQ(size, static_cast<std::size_t>(std::count(sent.begin(), sent.end(), 'x')) -
                        1);  // and that of libvexa
  }
}

TEST(HttpSessionTest, AConnectionServesNextWhenTheRestOfALeftBodyIsHereAndNothingElse) {
  const std::string whole = ok;
  for (const std::string& text :
       {whole, whole.substr(0, whole.size() - 1), whole + "HTTP/1.1 500"}) {
    Scripted_HTTP_Server server({{{text}, {ok}}, {{ok}}});
    const HTTP_Session_var session = session_to(server.port());
    HTTP_Response response;
    EXPECT_EQ(0, session->send_request(HTTP_Request())->recv_header(response));
    EXPECT_EQ("200:{}", call(session));
    EXPECT_EQ(text == whole ? 1 : 2, server.connections());
  }
}

TEST(HttpSessionTest, ConnectionsAreNotKeptAgainstTheWill) {
  for (const bool by_flag : {true, false}) {
    Scripted_HTTP_Server server({{{ok}}, {{ok}}});
    const HTTP_Session_var session =
        session_to(server.port(), 5, by_flag ? HTTP_SESSION_NO_KEEP_ALIVE : 0);
    HTTP_Request request;
    request.keep_alive(by_flag);
    for (int i = 0; i < 2; ++i) EXPECT_EQ("200:{}", receive(session->send_request(request)));
    EXPECT_NE(std::string::npos, server.request().find("\r\nConnection: close\r\n"));
    EXPECT_EQ(2, server.connections());
  }
}

TEST(HttpSessionTest, EachWaitHasItsLimit) {
  const std::string body(8000000, 'x');
  const struct {
    const char* text;
    std::size_t body;
    const char* outcome;
  } cases[] = {{"HTTP/1.1 200 OK\r\nContent-", 0, "ETIMEDOUT"},
               {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nab", 0, "200:ab ETIMEDOUT"},
               {"", body.size(), "ETIMEDOUT"}};
  for (const auto& c : cases) {
    Scripted_HTTP_Server server({{{c.text, Reply::stall, 0, true}}});
    const auto start = std::chrono::steady_clock::now();
    HTTP_Request request(HTTP_METHOD_POST, "/");
    request.content_length(c.body);
    const HTTP_Connection_var connection = session_to(server.port(), 1)->send_request(request);
    const bool sent = connection->send(body.data(), c.body) != -1;
    EXPECT_EQ(c.body == 0, sent);
    EXPECT_EQ(c.outcome, receive(connection));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GT(took, std::chrono::milliseconds(900));
    EXPECT_LT(took, std::chrono::milliseconds(1900));
  }
}

TEST(HttpSessionTest, AnAnswerBeforeTheEndOfTheBodyIsNotLost) {
  const std::string refusal = "HTTP/1.1 413 Too Large\r\nContent-Length: 2\r\n\r\n{}";
  const std::string body(8000000, 'x');
  for (const Reply::Then then : {Reply::close, Reply::stall}) {
    Scripted_HTTP_Server server({{{refusal, then, 0, true}}, {{ok}}});
    // Without a limit to sending: that it reads no more is known by its answer.
    const HTTP_Session_var session = HTTP_Session_Factory::create(
        "127.0.0.1", server.port(), false, nullptr, 3, nullptr, false, 0, 5, 5, 0);
    const HTTP_Connection_var connection =
        session->send_request(HTTP_Request(HTTP_METHOD_POST, "/"));
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(static_cast<ssize_t>(body.size()), connection->send(body.data(), body.size()));
    }
    EXPECT_EQ("413:{}", receive(connection));
    if (then == Reply::close) {  // the one that stalls is never told that its client has gone
      EXPECT_EQ("200:{}", call(session));
    }
  }
}

TEST(HttpSessionTest, CookiesOfTheServerComeBackUntilTheyAreCleared) {
  const std::string set = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nSet-Cookie: a=1; Path=/\r\n";
  for (const bool kept : {true, false}) {
    Scripted_HTTP_Server server(
        {{{set + "Set-Cookie: b=2; Path=/x\r\nSet-Cookie: s=3; Secure\r\n\r\n"}, {ok}, {ok}}});
    const HTTP_Session_var session =
        session_to(server.port(), 5, kept ? 0 : HTTP_SESSION_NO_COOKIES);
    HTTP_Request request(HTTP_METHOD_GET, "/x/y?z=/x");
    receive(session->send_request(request));
    receive(session->send_request(request));
    EXPECT_EQ(kept, server.request().find("\r\nCookie: b=2; a=1\r\n") != std::string::npos);
    session->clear_cookie();
    EXPECT_EQ("200:{}", call(session));
    EXPECT_EQ(std::string::npos, server.request().find("Cookie"));
  }
}

TEST(HttpSessionTest, ThreadsShareASession) {
  const std::string set = "HTTP/1.0 200 OK\r\nContent-Length: 0\r\nSet-Cookie: a=1\r\n\r\n";
  Scripted_HTTP_Server server(std::vector<Scripted_HTTP_Server::Connection>(40, {{set}}));
  const HTTP_Session_var session = session_to(server.port());
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&session] {
      for (int n = 0; n < 10; ++n) EXPECT_EQ("200", call(session));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(40, server.connections());
}

TEST(HttpSessionFactoryTest, ArgumentsThatMakeNoSenseAreRefused) {
  const auto make = [](const char* host, unsigned short port, const char* local, int families,
                       int timeout, int flags) {
    errno = 0;
    return HTTP_Session_Factory::create(host, port, false, local, families, nullptr, false, timeout,
                                        timeout, timeout, flags);
  };
  Log_Capture log;
  for (const char* host : {"", "a b", "a/b", "a\r\nb", "user@host", "[::1", "a#b"}) {
    EXPECT_EQ(nullptr, make(host, 80, nullptr, 3, 0, 0).get()) << host;
    EXPECT_EQ(EINVAL, errno);
  }
  EXPECT_EQ(nullptr, make("h", 0, nullptr, 3, 0, 0).get());
  EXPECT_EQ(nullptr, make("h", 80, "localhost", 3, 0, 0).get());
  EXPECT_EQ(nullptr, make("h", 80, nullptr, 4, 0, 0).get());
  EXPECT_EQ(nullptr, make("h", 80, nullptr, 3, -1, 0).get());
  EXPECT_EQ(nullptr, make("h", 80, nullptr, 3, 0, 16).get());
  EXPECT_EQ(12u, log.count("Failed to make an HTTP session"));
  EXPECT_EQ("h", make("h", 80, nullptr, 3, 0, 0)->authority());
  EXPECT_EQ("[::1]:8080", make("[::1]", 8080, nullptr, 3, 0, 0)->authority());
  EXPECT_EQ("[fe80::1]", make("fe80::1%eth0", 80, nullptr, 3, 0, 0)->authority());
}

TEST(HttpSessionFactoryTest, AConnectionKeepsToFamilyAndLocalAddress) {
  Log_Capture log;
  Scripted_HTTP_Server server({{{ok}}});
  const auto call_from = [&](const char* host, const char* local, int families) {
    return call(HTTP_Session_Factory::create(host, server.port(), false, local, families, nullptr,
                                             false, 1, 1, 1, 0));
  };
  EXPECT_EQ("EHOSTUNREACH", call_from("127.0.0.1", nullptr, HTTP_SESSION_IPV6));
  EXPECT_EQ("EHOSTUNREACH", call_from("no-such-host.invalid", nullptr, 3));
  EXPECT_EQ(2u, log.count("Failed to resolve "));
  EXPECT_EQ("EAFNOSUPPORT", call_from("127.0.0.1", "::1", 3));
  EXPECT_EQ("EADDRNOTAVAIL", call_from("127.0.0.1", "192.0.2.1", 3));
  EXPECT_EQ("200:{}", call_from("127.0.0.1", "127.0.0.1", HTTP_SESSION_IPV4));
  log.clear();
  const unsigned short closed = Scripted_HTTP_Server({}).port();
  EXPECT_EQ("ECONNREFUSED", call(session_to(closed)));
  EXPECT_EQ(1u, log.texts(LM_ERROR).size());
  EXPECT_EQ(1u, log.count("Failed to connect to 127.0.0.1:" + std::to_string(closed)));
}
