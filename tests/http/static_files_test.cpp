#include "http/static_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "http/http_date.h"
#include "http/preconditions.h"
#include "tests/http/recorded_reply.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

namespace fs = std::filesystem;

/// A folder with a root in it, which "/doc" stands for, and with what must not be reached.
class StaticFilesTest : public ::testing::Test {
protected:
  StaticFilesTest() {
    fs::create_directories(root_ + "/sub/.git");
    fs::create_directories(root_ + "/empty");
    fs::create_directories(directory_ / "root2");
    write("/secret", "secret");
    write("/root2/secret", "secret");
    write("/root/a.txt", "0123456789");
    write("/root/none", "");
    write("/root/page one.HTML", "page");
    write("/root/.hidden", "secret");
    write("/root/sub/index.html", "index");
    write("/root/sub/.git/config", "secret");
    fs::create_symlink("../secret", root_ + "/out");
    fs::create_symlink(directory_ / "secret", root_ + "/absolute");
    fs::create_symlink("..", root_ + "/up");
    fs::create_symlink("a.txt", root_ + "/inside");
    ::mkfifo((root_ + "/fifo").c_str(), 0600);
    // Old, so that its tag is a strong one.
    const struct timespec times[] = {{0, 0}, {784111777, 5}};
    ::utimensat(AT_FDCWD, (root_ + "/a.txt").c_str(), times, 0);
    map_.insert("/doc", root_);
    map_.insert("/gone", directory_ / "no such folder");
  }

  void write(const std::string& path, const std::string& text) const {
    directory_.write(path, text);
  }

  Recorded_Reply get(const std::string& target, int field = -1, const std::string& value = "",
                     int method = HTTP_METHOD_GET) {
    Http_Request_Head head = head_of(method, target);
    if (field >= 0) head.request.headers().put(field, value);
    return serve(head);
  }
  Recorded_Reply serve(const Http_Request_Head& head) {
    Recorded_Reply reply;
    EXPECT_TRUE(http::serve_file(map_, head, reply));
    return reply;
  }

  const Temporary_Directory directory_;
  const std::string root_ = directory_ / "root";
  HTTP_URI_Map map_;
};

const char* const written = "Sun, 06 Nov 1994 08:49:37 GMT";

TEST_F(StaticFilesTest, FilesAndFoldersAreServedAndNothingElse) {
  const struct {
    const char* target;
    int status;
    const char* body;
    const char* type;
  } cases[] = {{"/doc/a.txt?v=1", 200, "0123456789", "text/plain; charset=utf-8"},
               {"/doc/page%20one.HTML", 200, "page", "text/html; charset=utf-8"},
               {"/doc/none", 200, "", "application/octet-stream"},
               {"/doc/inside", 200, "0123456789", "application/octet-stream"},
               {"/doc/sub/", 200, "index", "text/html; charset=utf-8"}};
  for (const auto& c : cases) {
    const Recorded_Reply reply = get(c.target);
    EXPECT_EQ(c.status, reply.status()) << c.target;
    EXPECT_EQ(c.body, reply.body()) << c.target;
    EXPECT_EQ(c.type, reply.header(HTTP_HEAD_CONTENT_TYPE)) << c.target;
  }
  for (const char* const target :
       {"/doc/missing", "/doc/", "/doc/empty/", "/doc/a.txt/", "/doc/a.txt/b", "/doc/fifo",
        "/doc/.hidden", "/doc/sub/.git/config", "/doc/sub/.git/", "/doc/out", "/doc/absolute",
        "/doc/up/secret", "/doc/up/", "/doc/up/root2/secret", "/doc/%5c..%5csecret"}) {
    EXPECT_EQ(404, get(target).status()) << target;
  }
  Http_Request_Head head = head_of(HTTP_METHOD_GET, "/");
  head.path = std::string("/doc/a.txt\0.html", 16);  // as no target gives it
  EXPECT_EQ(404, serve(head).status());
  Recorded_Reply unanswered;
  EXPECT_FALSE(http::serve_file(map_, head_of(HTTP_METHOD_GET, "/document"), unanswered));
}

TEST_F(StaticFilesTest, AFolderWithoutItsSlashMovesAndTheRestIsRefused) {
  EXPECT_EQ("/doc/sub/?q", get("/doc/sub?q").header(HTTP_HEAD_LOCATION));
  EXPECT_EQ("/doc/", get("/doc").header(HTTP_HEAD_LOCATION));
  EXPECT_EQ(308, get("/doc").status());
  const Recorded_Reply post = get("/doc/a.txt", -1, "", HTTP_METHOD_POST);
  EXPECT_EQ(405, post.status());
  EXPECT_EQ("GET, HEAD", post.header(HTTP_HEAD_ALLOW));
  Log_Capture log;
  EXPECT_EQ(500, get("/gone/a").status());
  EXPECT_EQ(1u, log.count("no such folder"));
}

TEST_F(StaticFilesTest, OneRangeIsServedAsAsked) {
  const char* const range_error = "{\"error\":{\"code\":416,\"message\":\"No such range\"}}\n";
  const struct {
    const char* range;
    int status;
    const char* body;
    const char* content_range;
  } cases[] = {{"bytes=0-0", 206, "0", "bytes 0-0/10"},
               {"Bytes=3-", 206, "3456789", "bytes 3-9/10"},
               {"bytes=8-99", 206, "89", "bytes 8-9/10"},
               {"bytes=9-99999999999999999999999", 206, "9", "bytes 9-9/10"},
               {"bytes=-3", 206, "789", "bytes 7-9/10"},
               {"bytes=-18446744073709551617", 206, "0123456789", "bytes 0-9/10"},
               {"bytes=10-", 416, range_error, "bytes */10"},
               {"bytes=18446744073709551616-", 416, range_error, "bytes */10"},
               {"bytes=-0", 416, range_error, "bytes */10"},
               {"bytes=5-4", 200, "0123456789", "none"},
               {"bytes=0-1,3-4", 200, "0123456789", "none"},
               {"bytes=-", 200, "0123456789", "none"},
               {"bytes=a-b", 200, "0123456789", "none"},
               {"bytes=--1", 200, "0123456789", "none"},
               {"lines=0-1", 200, "0123456789", "none"}};
  for (const auto& c : cases) {
    const Recorded_Reply reply = get("/doc/a.txt", HTTP_HEAD_RANGE, c.range);
    EXPECT_EQ(c.status, reply.status()) << c.range;
    EXPECT_EQ(c.body, reply.body()) << c.range;
    EXPECT_EQ(c.content_range, reply.header(HTTP_HEAD_CONTENT_RANGE)) << c.range;
  }
  EXPECT_EQ(416, get("/doc/none", HTTP_HEAD_RANGE, "bytes=0-").status());
  EXPECT_EQ(200, get("/doc/none", HTTP_HEAD_RANGE, "bytes=-1").status());
  EXPECT_EQ(200, get("/doc/a.txt", HTTP_HEAD_RANGE, "bytes=0-0", HTTP_METHOD_HEAD).status());
}

TEST_F(StaticFilesTest, ConditionsDecideInTheirOrder) {
  const std::string tag = get("/doc/a.txt").header(HTTP_HEAD_ETAG);
  EXPECT_EQ('"', tag[0]);
  EXPECT_EQ(written, get("/doc/a.txt").header(HTTP_HEAD_LAST_MODIFIED));
  const std::string before = "Sun, 06 Nov 1994 08:49:36 GMT";
  const struct {
    std::vector<std::pair<int, std::string>> fields;
    int status;
  } cases[] = {
      {{{HTTP_HEAD_IF_NONE_MATCH, tag}}, 304},
      {{{HTTP_HEAD_IF_NONE_MATCH, "\"a,b\" , W/" + tag}}, 304},
      {{{HTTP_HEAD_IF_NONE_MATCH, "*"}}, 304},
      {{{HTTP_HEAD_IF_NONE_MATCH, "\"other\""}, {HTTP_HEAD_IF_NONE_MATCH, tag}}, 304},
      {{{HTTP_HEAD_IF_NONE_MATCH, "\"open, " + tag}}, 200},
      {{{HTTP_HEAD_IF_NONE_MATCH, "\"other\""}, {HTTP_HEAD_IF_MODIFIED_SINCE, written}}, 200},
      {{{HTTP_HEAD_IF_MODIFIED_SINCE, written}}, 304},
      {{{HTTP_HEAD_IF_MODIFIED_SINCE, "Sunday, 06-Nov-94 08:49:37 GMT"}}, 304},
      {{{HTTP_HEAD_IF_MODIFIED_SINCE, "Sun Nov  6 08:49:37 1994"}}, 304},
      {{{HTTP_HEAD_IF_MODIFIED_SINCE, before}}, 200},
      {{{HTTP_HEAD_IF_MODIFIED_SINCE, "Wed, 31 Nov 2033 08:49:37 GMT"}}, 200},
      {{{HTTP_HEAD_IF_MATCH, tag}}, 200},
      {{{HTTP_HEAD_IF_MATCH, "*"}}, 200},
      {{{HTTP_HEAD_IF_MATCH, "W/" + tag}}, 412},
      {{{HTTP_HEAD_IF_MATCH, "\"other\""}, {HTTP_HEAD_IF_NONE_MATCH, tag}}, 412},
      {{{HTTP_HEAD_IF_MATCH, tag}, {HTTP_HEAD_IF_UNMODIFIED_SINCE, before}}, 200},
      {{{HTTP_HEAD_IF_UNMODIFIED_SINCE, before}}, 412},
      {{{HTTP_HEAD_IF_UNMODIFIED_SINCE, written}}, 200},
      {{{HTTP_HEAD_RANGE, "bytes=0-0"}, {HTTP_HEAD_IF_RANGE, tag}}, 206},
      {{{HTTP_HEAD_RANGE, "bytes=0-0"}, {HTTP_HEAD_IF_RANGE, "W/" + tag}}, 200},
      {{{HTTP_HEAD_RANGE, "bytes=0-0"}, {HTTP_HEAD_IF_RANGE, written}}, 206},
      {{{HTTP_HEAD_RANGE, "bytes=0-0"}, {HTTP_HEAD_IF_RANGE, before}}, 200},
      {{{HTTP_HEAD_RANGE, "bytes=99-"}, {HTTP_HEAD_IF_RANGE, "\"other\""}}, 200},
      {{{HTTP_HEAD_RANGE, "bytes=0-0"}, {HTTP_HEAD_IF_NONE_MATCH, tag}}, 304}};
  for (const auto& c : cases) {
    Http_Request_Head head = head_of(HTTP_METHOD_GET, "/doc/a.txt");
    std::string shown;
    for (const auto& field : c.fields) {
      head.request.headers().put(field.first, field.second, false);
      shown += std::string(http_head_name(field.first)) + ": " + field.second + "; ";
    }
    EXPECT_EQ(c.status, serve(head).status()) << shown;
  }
}

TEST_F(StaticFilesTest, AFileThatWasJustWrittenHasAWeakTagOnly) {
  write("/root/new", "0123456789");
  const std::string tag = get("/doc/new").header(HTTP_HEAD_ETAG);
  EXPECT_EQ("W/\"", tag.substr(0, 3));
  EXPECT_EQ(304, get("/doc/new", HTTP_HEAD_IF_NONE_MATCH, tag).status());
  write("/root/new", "0123456789a");
  EXPECT_EQ(200, get("/doc/new", HTTP_HEAD_IF_NONE_MATCH, tag).status());
}

TEST(HTTPDateTest, YearsOfTwoDigitsLieWithinFiftyYears) {
  const std::time_t in_2026 = 1790000000;
  const auto year = [&](const char* digits) {
    const auto when =
        http::parse_http_date("Sunday, 06-Nov-" + std::string(digits) + " 08:49:37 GMT", in_2026);
    return when ? http::http_date(*when).substr(12, 4) : "none";
  };
  EXPECT_EQ("2026", year("26"));
  EXPECT_EQ("2076", year("76"));
  EXPECT_EQ("1977", year("77"));
  EXPECT_EQ("none", year("7"));
}

}  // namespace
