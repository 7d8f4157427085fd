#include "http/redirects.h"

#include <gtest/gtest.h>

#include "tests/http/recorded_reply.h"
#include "tests/support/log_capture.h"

namespace {

TEST(RedirectsTest, RestAndQueryFollowTheNewURI) {
  const Log_Capture log;  // for the one that is broken
  HTTP_URI_Map map;
  ASSERT_EQ(0, map.insert("/old", "/new"));
  ASSERT_EQ(0, map.insert("/dir/", "https://other.example/x/"));
  ASSERT_EQ(0, map.insert("/host", "https://other.example"));
  ASSERT_EQ(0, map.insert("/root", "/"));
  ASSERT_EQ(0, map.insert("/broken", "/a\nSet-Cookie: b"));
  const auto location = [&map](const char* target) -> std::string {
    Recorded_Reply reply;
    if (!http::redirect(map, head_of(HTTP_METHOD_POST, target), reply)) return "not here";
    if (reply.status() != 308) return std::to_string(reply.status());
    return reply.header(HTTP_HEAD_LOCATION);
  };
  const struct {
    const char* target;
    const char* location;
  } cases[] = {{"/old", "/new"},
               {"/old/", "/new/"},
               {"/old/a%20b%3Fc?d=%20", "/new/a%20b%3Fc?d=%20"},
               {"/old?q", "/new?q"},
               {"/older", "not here"},
               {"/dir/a", "https://other.example/x/a"},
               {"/host/a", "https://other.example/a"},
               {"/root//evil.example/", "/evil.example/"},
               {"/old/%0d%0aX:%20y", "/new/%0D%0AX:%20y"},
               {"/broken", "500"}};
  for (const auto& c : cases) EXPECT_EQ(c.location, location(c.target)) << c.target;
}

}  // namespace
