#include "vexa/http_uri_map.h"

#include <gtest/gtest.h>

namespace {

TEST(HTTPURIMapTest, TheLongestPrefixAtABoundaryWins) {
  HTTP_URI_Map map;
  ASSERT_EQ(0, map.insert("/a", "short"));
  ASSERT_EQ(0, map.insert("/a/b", "long"));
  ASSERT_EQ(0, map.insert("/dir/", "slash"));
  EXPECT_EQ(-1, map.insert("/a", "late"));
  const auto found = [&map](const char* uri) {
    size_t length = 99;
    const std::string* const target = map.find(uri, length);
    return (target != nullptr ? *target : "none") + " " + std::to_string(length);
  };
  const struct {
    const char* uri;
    const char* found;
  } cases[] = {{"/a", "short 2"},    {"/a/", "short 2"}, {"/a/bc", "short 2"},
               {"/a/b/c", "long 4"}, {"/ab", "none 99"}, {"/", "none 99"},
               {"", "none 99"},      {"a", "none 99"},   {"/dir/x/y", "slash 5"},
               {"/dir", "none 99"}};
  for (const auto& c : cases) EXPECT_EQ(c.found, found(c.uri)) << c.uri;
  ASSERT_EQ(0, map.insert("/", "root"));
  EXPECT_EQ("root 1", found("/ab"));
}

}  // namespace
