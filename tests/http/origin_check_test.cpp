#include "http/origin_check.h"

#include <gtest/gtest.h>

namespace {

TEST(OriginCheckTest, OnlyOurNamesAndOurPagesPass) {
  const http::Origin_Check none{}, some{{"https://Good.example:8"}, {"name.example"}};
  const http::Origin_Check any{{"*"}, {"*"}};
  const struct {
    const http::Origin_Check* check;
    bool tls;
    const char* host;
    const char* origin;
    bool host_allowed, origin_allowed, foreign;
  } cases[] = {
      {&none, false, "127.0.0.1:80", "", true, true, false},
      {&none, false, "LOCALHOST", "http://localhost", true, true, false},
      {&none, false, "[::1]:8080", "http://[::1]:8080", true, true, false},
      {&none, true, "[::1]", "http://[::1]", true, false, true},
      {&none, true, "10.0.0.1", "https://10.0.0.1", true, true, false},
      {&none, false, "localhost:1", "http://localhost:2", true, false, true},
      {&none, false, "localhost", "null", true, false, true},
      {&none, false, "127.0.0.1.example", "", false, true, false},
      {&none, false, "localhost.example:80", "http://localhost.example:80", false, true, false},
      {&none, false, "[::1", "", false, true, false},
      {&none, false, "[::1].evil.example", "", false, true, false},
      {&none, false, "[", "", false, true, false},
      {&none, false, "[localhost.]", "", false, true, false},
      {&none, false, ":80", "", false, true, false},
      {&none, false, "1", "", false, true, false},
      {&some, false, "Name.example:80", "https://good.example:8", true, true, true},
      {&some, false, "a.name.example", "https://good.example", false, false, true},
      {&some, false, "name.example.", "https://good.example:8/", false, false, true},
      {&any, false, "other", "null", true, true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.host) + " " + c.origin);
    Http_Request_Head head;
    head.tls = c.tls;
    head.request.headers().put("Host", c.host);
    if (*c.origin != '\0') head.request.headers().put("Origin", c.origin);
    EXPECT_EQ(c.host_allowed, c.check->host_allowed(head));
    EXPECT_EQ(c.origin_allowed, c.check->origin_allowed(head));
    EXPECT_EQ(c.foreign, c.check->is_foreign(head));
  }
  Http_Request_Head old;
  EXPECT_FALSE(any.host_allowed(old)) << "HTTP/1.1 has one";
  old.request.minor_version(0);
  EXPECT_TRUE(none.host_allowed(old)) << "no browser";
}

}  // namespace
