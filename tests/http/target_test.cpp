#include "http/target.h"

#include <gtest/gtest.h>

namespace {

using http::parse_target;
using http::Target;

std::string parsed(const std::string& text) {
  Target target{"untouched", ""};
  const int status = parse_target(text, target);
  if (status == 0) return target.path + "|" + target.query;
  EXPECT_EQ("untouched", target.path);
  return std::to_string(status);
}

TEST(TargetTest, FormsAreTakenApart) {
  const struct {
    const char* text;
    const char* parsed;
  } cases[] = {{"/", "/|"},
               {"/a/b%20c?x=%2F..&y", "/a/b c|x=%2F..&y"},
               {"/a?b?c", "/a|b?c"},
               {"/%c3%A9", "/\xc3\xa9|"},
               {"*", "*|"},
               {"http://h:80/a/../b?q", "/b|q"},
               {"HTTPS://user@h?q", "/|q"},
               {"http://h", "/|"},
               {"/a/./b/", "/a/b/|"},
               {"/a/..", "/|"},
               {"/a/b/.", "/a/b/|"},
               {"/../../a", "/a|"},
               {"/a/%2e%2E/b", "/b|"},
               {"//host/..//x", "/x|"},
               {"/...", "/...|"},
               {"/a/..b", "/a/..b|"},
               // What is refused.
               {"", "400"},
               {"a", "400"},
               {"host:443", "400"},
               {"ftp://h/a", "400"},
               {"http://", "400"},
               {"http:///a", "400"},
               {"/%", "400"},
               {"/%4", "400"},
               {"/%4g", "400"},
               {"/%+1", "400"},
               {"/%00", "400"},
               {"/a%2fb", "400"},
               {"/a#b", "400"},
               {"/a b", "400"},
               {"/a\r\n", "400"},
               {"/\xc3\xa9", "400"},
               {"/a?b\x7f", "400"}};
  for (const auto& c : cases) EXPECT_EQ(c.parsed, parsed(c.text)) << c.text;
  EXPECT_EQ("400", parsed(std::string("/a\0b", 4)));
}

}  // namespace
