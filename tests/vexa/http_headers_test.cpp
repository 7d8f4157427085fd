#include "vexa/http_headers.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "tests/support/log_capture.h"
#include "vexa/http_cookies.h"

TEST(HttpHeadersTest, NamesAreOneFieldWhateverTheirCaseAndNumber) {
  HTTP_Headers headers;
  EXPECT_TRUE(headers.put("content-TYPE", "a"));
  EXPECT_TRUE(headers.put(HTTP_HEAD_CONTENT_TYPE, " b\t", false));
  EXPECT_TRUE(headers.put("X-One", "1"));
  EXPECT_STREQ("a", headers.get("Content-Type"));
  EXPECT_TRUE(headers.put(HTTP_HEAD_CONTENT_TYPE, "c"));
  EXPECT_TRUE(headers.put("x-one", "2"));
  EXPECT_EQ(2, headers.end() - headers.begin());
  EXPECT_STREQ("c", headers.get(HTTP_HEAD_CONTENT_TYPE));
  EXPECT_STREQ("2", headers.get("X-ONE"));
  EXPECT_TRUE(headers.remove("X-One"));
  EXPECT_FALSE(headers.remove("X-One"));
  EXPECT_EQ(nullptr, headers.get("X-One"));
  for (int id = 0; id < HTTP_HEAD_COUNT; ++id) EXPECT_EQ(id, http_head_id(http_head_name(id)));
}

TEST(HttpHeadersTest, WhatWouldEndALineIsRefusedWithAnErrorLine) {
  const struct {
    std::string name, value;
  } cases[] = {{"X-A", "a\n"}, {"X-A", "a\r"}, {"X-A", {"a\0b", 3}}, {"X A", "a"},
               {"", "a"},      {"X:", "a"},    {{"X\0A", 3}, "a"},   {"X-\xC3\xA9", "a"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name + "=" + c.value);
    Log_Capture log;
    HTTP_Headers headers;
    EXPECT_FALSE(headers.put(c.name, c.value));
    EXPECT_TRUE(headers.empty());
    EXPECT_TRUE(headers.refused());
    EXPECT_EQ(1u, log.texts(LM_ERROR).size());
    headers.clear();
    EXPECT_FALSE(headers.refused());
  }
}

TEST(HttpCookiesTest, ASetCookieIsKeptAndSentWhereItBelongs) {
  constexpr std::time_t now = 1000000000;
  const struct {
    std::vector<const char*> set;  // by answers to "/a/b" of "www.example.org"
    const char* path;
    bool secure;
    const char* sent;
  } cases[] = {
      {{"a=1", "b=\"2\" ; HttpOnly"}, "/a/c", false, "a=1; b=\"2\""},
      {{"a=1"}, "/ab", false, ""},
      {{"a=1; Path=/"}, "/x", false, "a=1"},
      {{"a=1; path=relative"}, "/x", false, ""},
      {{"a=1; Path=/", "a=2; Path=/a", "b=3; Path=/"}, "/a", false, "a=2; a=1; b=3"},
      {{"a=1", "b=2", "a=3"}, "/a", false, "a=3; b=2"},
      {{"a=1; Secure"}, "/a", false, ""},
      {{"a=1; Secure"}, "/a", true, "a=1"},
      {{"a=1", "a=; Max-Age=0"}, "/a", false, ""},
      {{"a=1; Max-Age=99999999999999999999"}, "/a", false, "a=1"},
      {{"a=1; Max-Age=60; Expires=Thu, 01 Jan 1970 00:00:00 GMT"}, "/a", false, "a=1"},
      {{"a=1", "a=1; expires=Thu, 01 Jan 1970 00:00:00 GMT"}, "/a", false, ""},
      {{"a=1; Expires=Sun, 09 Sep 2001 01:46:41 GMT"}, "/a", false, "a=1"},
      {{"a=1; Expires=Sun, 09 Sep 2001 01:46:40 GMT"}, "/a", false, ""},
      {{"a=1; Expires=nonsense"}, "/a", false, "a=1"},
      {{"a=1; Domain=.example.org"}, "/a", false, "a=1"},
      {{"a=1; Domain=ample.org"}, "/a", false, ""},
      {{"a=1; Domain=org"}, "/a", false, ""},
      {{"a", "=1", ""}, "/a", false, ""},
  };
  for (const auto& c : cases) {
    vexa::HTTP_Cookies cookies;
    for (const char* text : c.set) cookies.set(text, "www.example.org", "/a/b", now);
    EXPECT_EQ(c.sent, cookies.get(c.path, c.secure, now)) << c.set.back();
  }
  vexa::HTTP_Cookies cookies;
  cookies.set("a=1; Max-Age=10", "h", "/", now);
  EXPECT_EQ("a=1", cookies.get("/", false, now + 9));
  EXPECT_EQ("", cookies.get("/", false, now + 10));
  for (int i = 0; i < 100; ++i) cookies.set("c" + std::to_string(i) + "=", "h", "/", now);
  EXPECT_EQ(0u, cookies.get("/", false, now).find("c36=; "));
}

TEST(HttpCookiesTest, DatesAreReadAsBrowsersReadThem) {
  for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                           "Sun Nov  6 08:49:37 1994", "6 november 1994 8:49:37"}) {
    EXPECT_EQ(784111777, vexa::http_cookie_date(text)) << text;
  }
  for (const char* text : {"", "Sun, 06 Nov 1994", "06 Nov 1994 24:00:00", "32 Nov 1994 00:00:00",
                           "06 Nov 1600 00:00:00", "06 xyz 1994 00:00:00"}) {
    EXPECT_EQ(-1, vexa::http_cookie_date(text)) << text;
  }
}
