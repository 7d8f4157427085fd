#include "http/http_site.h"

#include <gtest/gtest.h>

#include "http/redirects.h"
#include "tests/http/recorded_reply.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

class HTTPSiteTest : public ::testing::Test {
protected:
  size_t load(const std::string& text) {
    const Temporary_File file(text);
    return http::load_site(file.path().c_str(), files_, redirects_);
  }
  static std::string find(const HTTP_URI_Map& map, const std::string& uri) {
    std::string::size_type length = 0;
    const std::string* const target = map.find(uri, length);
    return target != nullptr ? *target : "none";
  }

  Log_Capture log_;
  HTTP_URI_Map files_;
  HTTP_URI_Map redirects_;
};

TEST_F(HTTPSiteTest, WhatIsGoodIsTakenAndTheRestIsNamed) {
  EXPECT_EQ(14u, load(R"({"files": {"/tmp": "/tmp", "/a b": "/", "/none": "/no/such", "rel": "/",
                         "/x/../y": "/", "/number": 1, "/file": "/etc/passwd"},
               "redirects": {"/old": "/new", "/host": "https://h.example:1/x", "/tmp": "/t",
                             "/r": "/r/s", "/q": "/a?b", "/s": "//h", "/j": "javascript:x",
                             "/e": "", "/n": "/a\nb", "/p": null},
               "extra": 1})"));
  EXPECT_EQ("/tmp", find(files_, "/tmp/x"));
  EXPECT_EQ("/", find(files_, "/a b"));
  EXPECT_EQ("none", find(files_, "/file"));
  EXPECT_EQ("/new", find(redirects_, "/old"));
  EXPECT_EQ("https://h.example:1/x", find(redirects_, "/host"));
  for (const char* const bad : {"/tmp", "/r", "/q", "/s", "/j", "/e", "/n", "/p"}) {
    EXPECT_EQ("none", find(redirects_, bad)) << bad;
  }
  EXPECT_EQ(14u, log_.texts(LM_ERROR).size());
  EXPECT_EQ(1u, log_.count("the folder \"/no/such\" of \"/none\" cannot be opened, No such file"));
  EXPECT_EQ(1u, log_.count("no request has the prefix \"/x/../y\", but \"/y\""));
  EXPECT_EQ(1u, log_.count("\"/r\" leads back to itself"));
  EXPECT_EQ(1u, log_.count("\"extra\" is unknown"));
  EXPECT_EQ(1u, load(R"({"redirects": {"/old": "/newer"}})")) << "the first of a prefix stays";
  EXPECT_EQ("/new", find(redirects_, "/old"));
}

TEST_F(HTTPSiteTest, RestAndQueryFollowTheNewURI) {
  EXPECT_EQ(0u, load(R"({"redirects": {"/old": "/new", "/dir/": "https://other.example/x/",
                                       "/host": "https://other.example", "/root": "/"}})"));
  ASSERT_EQ(0, redirects_.insert("/broken", "/a\nSet-Cookie: b"));  // as no file gives it
  const auto location = [&](const char* target) -> std::string {
    Recorded_Reply reply;
    if (!http::redirect(redirects_, head_of(HTTP_METHOD_POST, target), reply)) return "not here";
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

TEST_F(HTTPSiteTest, AFileThatIsNoSiteCountsOnce) {
  for (const char* const text :
       {"", "{", "[]", "{} x", "{\"files\": []}", "{\"redirects\": null}"}) {
    log_.clear();
    EXPECT_EQ(1u, load(text)) << text;
    EXPECT_EQ(1u, log_.texts(LM_ERROR).size()) << text;
  }
  for (const char* const path : {"/no/such/file", "/tmp", "/dev/zero"}) {
    EXPECT_EQ(1u, http::load_site(path, files_, redirects_)) << path;
  }
  EXPECT_EQ(0u, load("{}"));
}

}  // namespace
