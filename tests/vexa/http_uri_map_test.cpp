#include "vexa/http_uri_map.h"

#include <gtest/gtest.h>

namespace {

TEST(HTTPURIMapTest, TheLongestPrefixAtABoundaryWins) {
  HTTP_URI_Map map;
  ASSERT_EQ(0, map.insert("/a", "short"));
  ASSERT_EQ(0, map.insert("/a/b", "long"));
  ASSERT_EQ(0, map.insert("/dir/", "slash"));
  EXPECT_EQ(-1, map.insert("/a", "late"));

  const struct {
    const char* uri;
    const char* target;
    size_t length;
  } cases[] = {
      {"/a", "short", 2},       {"/a/", "short", 2},  {"/a/bc", "short", 2}, {"/a/b/c", "long", 4},
      {"/ab", nullptr, 0},      {"/", nullptr, 0},    {"", nullptr, 0},      {"a", nullptr, 0},
      {"/dir/x/y", "slash", 5}, {"/dir", nullptr, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    size_t length = 0;
    const std::string* const target = map.find(c.uri, length);
    EXPECT_EQ(c.length, length);
    if (c.target == nullptr) {
      EXPECT_EQ(nullptr, target);
    } else {
      ASSERT_NE(nullptr, target);
      EXPECT_EQ(c.target, *target);
    }
  }

  size_t length = 0;
  ASSERT_EQ(0, map.insert("/", "root"));
  ASSERT_NE(nullptr, map.find("/ab", length));
  EXPECT_EQ("root", *map.find("/ab", length));
  EXPECT_EQ(1u, length);
}

}  // namespace
