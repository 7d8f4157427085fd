#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "tests/support/certificates.h"
#include "tests/support/http_exchange.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_http_server.h"

namespace {

const char ok[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";

class HttpTlsTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    certificates_ = new Certificates;
    certificates_->sign("good", "DNS:localhost,IP:127.0.0.1");
    certificates_->sign("other", "DNS:example.org,IP:127.0.0.2");
    certificates_->sign("expired", "DNS:localhost,IP:127.0.0.1", -1);
    certificates_->self_sign("untrusted", "IP:127.0.0.1");
    // What the system trusts is this CA, for sessions that are made from now on.
    ::setenv("SSL_CERT_FILE", file("ca").c_str(), 1);
  }
  static void TearDownTestSuite() {
    ::unsetenv("SSL_CERT_FILE");
    delete certificates_;
  }
  static std::string file(const std::string& name) { return certificates_->file(name); }

  static HTTP_Session_var session_to(const Scripted_HTTP_Server& server,
                                     const char* host = "127.0.0.1", bool insecure = false,
                                     int flags = 0, int conn_timeout = 5) {
    return HTTP_Session_Factory::create(host, server.port(), true, nullptr, HTTP_SESSION_IPV4,
                                        nullptr, insecure, 5, 5, conn_timeout, flags);
  }
  /// The status, or minus the errno.
  static int call(const HTTP_Session_var& session) {
    HTTP_Response response;
    std::size_t size;
    const int error = exchange(*session, HTTP_Request(), response, size);
    return error == 0 ? response.status() : -error;
  }

  static const Certificates* certificates_;
};

const Certificates* HttpTlsTest::certificates_ = nullptr;

}  // namespace

TEST_F(HttpTlsTest, OnlyACertificateThatProvesTheNameIsAccepted) {
  const struct {
    const char* certificate;
    const char* host;
    bool insecure;
    int flags;
    const char* reason;  // null: accepted
  } cases[] = {
      {"good", "127.0.0.1", false, 0, nullptr},
      {"good", "localhost", false, HTTP_SESSION_TLS_1_3, nullptr},
      {"other", "127.0.0.1", false, 0, "IP address mismatch"},
      {"other", "localhost", false, 0, "hostname mismatch"},
      {"other", "localhost", false, HTTP_SESSION_ANY_HOST_NAME, nullptr},
      {"expired", "localhost", false, 0, "certificate has expired"},
      {"expired", "localhost", false, HTTP_SESSION_ANY_HOST_NAME, "certificate has expired"},
      {"untrusted", "127.0.0.1", false, 0, "self-signed certificate"},
      {"untrusted", "127.0.0.1", true, 0, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.certificate) + " for " + c.host);
    Log_Capture log;
    Scripted_HTTP_Server server({{{ok}}}, file(c.certificate));
    const HTTP_Session_var session = session_to(server, c.host, c.insecure, c.flags);
    EXPECT_EQ(c.reason == nullptr ? 200 : -EPROTO, call(session));
    EXPECT_EQ(c.insecure ? 1u : 0u, log.texts(LM_WARNING).size());
    const std::string line = "Failed to verify the certificate of " + session->authority() + ", " +
                             (c.reason == nullptr ? "" : c.reason) + "\n";
    EXPECT_EQ(c.reason != nullptr, log.contains(LM_ERROR, line));
    EXPECT_EQ(c.reason != nullptr ? 1u : 0u, log.texts(LM_ERROR).size());
  }
}

TEST_F(HttpTlsTest, AConnectionIsKeptAndReplacedAsWithoutTls) {
  Scripted_HTTP_Server server({{{ok, Scripted_Reply::keep, 1}, {ok, Scripted_Reply::close}},
                               {{ok}, {"", Scripted_Reply::reset}},
                               {{ok}}},
                              file("good"));
  const HTTP_Session_var session = session_to(server);
  EXPECT_EQ(200, call(session));
  EXPECT_EQ(200, call(session));
  EXPECT_EQ(1, server.connections());
  EXPECT_EQ(200, call(session));
  EXPECT_EQ(2, server.connections());
  EXPECT_EQ(200, call(session));
  EXPECT_EQ(3, server.connections());
}

TEST_F(HttpTlsTest, ABodyWithoutALengthEndsOnlyWhereTheServerSaysSo) {
  for (const Scripted_Reply::Then then : {Scripted_Reply::close, Scripted_Reply::reset}) {
    Scripted_HTTP_Server server({{{"HTTP/1.1 200 OK\r\n\r\n{}", then}}}, file("good"));
    const int result = call(session_to(server));
    EXPECT_EQ(then == Scripted_Reply::close ? 200 : -ECONNRESET, result);
  }
}

TEST_F(HttpTlsTest, WritingToAServerThatHasGoneRaisesNoSignal) {
  const std::string body(3000000, 'x');
  Scripted_HTTP_Server server({{{"", Scripted_Reply::close, 0, true}}}, file("good"));
  const HTTP_Connection_var connection =
      session_to(server)->send_request(HTTP_Request(HTTP_METHOD_POST, "/"));
  ssize_t sent = 0;
  for (int i = 0; i < 5 && sent != -1; ++i) sent = connection->send(body.data(), body.size());
  EXPECT_EQ(-1, sent);
  EXPECT_TRUE(connection->error() == EPIPE || connection->error() == ECONNRESET);
}

TEST_F(HttpTlsTest, AHandshakeThatStallsOrMakesNoSenseFails) {
  Log_Capture log;
  Scripted_HTTP_Server plain({{}, {{"", Scripted_Reply::close, 0, true}}});
  EXPECT_EQ(-ETIMEDOUT, call(session_to(plain, "127.0.0.1", false, 0, 1)));
  EXPECT_EQ(1u, log.count("TLS handshake with "));
}
