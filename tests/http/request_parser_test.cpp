#include "http/request_parser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using http::Request_Parser;

/// What comes of a text that arrives in pieces of that size: a line a request, and what it is
/// refused with.
std::string read(const std::string& text, std::size_t piece) {
  CGI_Request request;
  Request_Parser parser(request);
  std::string seen;
  for (std::size_t at = 0; at < text.size(); at += piece) {
    const std::string bytes = text.substr(at, piece);  // a block of its own
    for (std::size_t used = 0;;) {
      std::size_t taken = 0;
      const auto outcome = parser.feed(bytes.data() + used, bytes.size() - used, taken);
      used += taken;
      if (outcome == Request_Parser::MORE) break;
      if (outcome == Request_Parser::BAD) return seen + std::to_string(parser.status());
      if (outcome == Request_Parser::HEAD) {
        seen += std::string(http_method_name(request.method())) + ' ' + request.uri_text() +
                (parser.keep_alive() ? " + " : " - ");
        const char* const field = request.headers().get("X");
        if (field != nullptr) seen.append(field).append(" ");
      } else if (outcome == Request_Parser::BODY) {
        seen.append(parser.body());
      } else {
        seen += '\n';
        parser.begin();
      }
    }
  }
  return seen;
}

TEST(RequestParserTest, WhateverThePiecesRequestsAreTheSame) {
  const std::string post = "POST /a HTTP/1.1\r\nHost: h\r\n";
  const std::string chunked = post + "Transfer-Encoding: Chunked\r\n\r\n";
  const struct {
    std::string text;
    std::string seen;
  } cases[] = {
      {"GET /a?b HTTP/1.1\r\nHost: h\r\nX:  y z \r\n\r\n", "GET /a?b + y z \n"},
      {"GET / HTTP/1.0\r\n\r\n", "GET / - \n"},
      {"HEAD * HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n", "HEAD * + \n"},
      {post + "Connection: x, close\r\nContent-Length: 3\r\n\r\nabc", "POST /a - abc\n"},
      {post + "Content-Length: 3\r\n\r\nabc" + post + "Content-Length: 0\r\n\r\n" + post + "\r\n",
       "POST /a + abc\nPOST /a + \nPOST /a + \n"},
      {chunked + "3\r\nabc\r\n00A;x=\"y\"\r\n0123456789\r\n0\r\nX: t\r\n\r\n" + post + "\r\n",
       "POST /a + abc0123456789\nPOST /a + \n"},
      {post + "X: " + std::string(60000, 'x') + "\r\n\r\n",
       "POST /a + " + std::string(60000, 'x') + " \n"},
      {chunked + "0\r\nX: " + std::string(60000, 'x') + "\r\n\r\n", "POST /a + \n"},
      {post + "X: " + std::string(66000, 'x') + "\r\n\r\n", "431"},
      {chunked + "0\r\nX: " + std::string(70000, 'x') + "\r\n\r\n", "POST /a + 400"},
      {chunked + "1;" + std::string(70000, 'x') + "\r\na\r\n0\r\n\r\n", "POST /a + 400"},
      {chunked + "1\r\nab\r\n0\r\n\r\n", "POST /a + a400"},
      {chunked + "fffffffffffffffff\r\na\r\n", "POST /a + 400"},
      {post + "Content-Length: 1\r\n" + chunked.substr(post.size()) + "0\r\n\r\n", "400"},
      {post + "Host: h\r\n\r\n", "400"},
      {"GET / HTTP/1.1\r\nX: y\r\n\r\n", "400"},
      {"BREW / HTTP/1.1\r\nHost: h\r\n\r\n", "501"},
      {post + "Transfer-Encoding: gzip, chunked\r\n\r\n", "501"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 100));
    EXPECT_EQ(c.seen, read(c.text, c.text.size()));
    for (std::size_t n = 1; n < c.text.size() && c.text.size() < 1000; ++n) {
      ASSERT_EQ(c.seen, read(c.text, n)) << n;
    }
    EXPECT_EQ(c.seen, read(c.text, 1000));
  }
}

}  // namespace
