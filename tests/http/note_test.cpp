// The sample plug-in, loaded and called as the host does it.
#include <gtest/gtest.h>

#include "http/restful.h"
#include "json_rpc/json_restful_conf.h"
#include "tests/http/recorded_reply.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

class NoteTest : public ::testing::Test {
protected:
  NoteTest() {
    const Temporary_File file(R"([{"uri": "/notes", "dll": ")" NOTE_PLUGIN
                              R"(", "init": "make_notes", "params": "2"}])");
    JSON_RESTful_Conf conf;
    EXPECT_EQ(0u, load_json_config(file.path().c_str(), conf));
    EXPECT_EQ(
        0u, http::make_restful_handlers(*JSON_RESTful_Handler_Creator_Map::instance(), handlers_));
  }
  ~NoteTest() override {
    handlers_.clear();
    JSON_RESTful_Handler_Creator_Map::close_instance();
  }

  std::string ask(int method, const std::string& uri, std::string body = "") {
    Http_Request_Head head = head_of(method, uri);
    head.request.headers().put(HTTP_HEAD_CONTENT_TYPE, "application/json");
    std::string answer = "none";
    EXPECT_TRUE(http::serve_restful(handlers_, head, body, 1u << 20,
                                    [&](int status, HTTP_Headers headers, std::string text) {
                                      const char* const location = headers.get(HTTP_HEAD_LOCATION);
                                      answer = std::to_string(status) + " " + text.substr(0, 50) +
                                               (location != nullptr ? location : "");
                                    }));
    return answer;
  }

  Log_Capture log_;
  JSON_RESTful_Request_Map handlers_;
};

TEST_F(NoteTest, NotesAreKeptReplacedAndRemoved) {
  const std::string missing = R"(404 {"error":{"code":404,"message":"Not Found"}})";
  const struct {
    int method;
    const char* uri;
    std::string body, answer;
  } steps[] = {
      {HTTP_METHOD_GET, "/notes", "", "200 []"},
      {HTTP_METHOD_POST, "/notes/", "{\"a\":1}", "201 {\"id\":1}/notes/1"},
      {HTTP_METHOD_POST, "/notes?x", "[]", "201 {\"id\":2}/notes/2"},
      {HTTP_METHOD_POST, "/notes", "3",
       R"(503 {"error":{"code":503,"message":"There is no room f)"},
      {HTTP_METHOD_GET, "/notes/1?x", "", "200 {\"a\":1}"},
      {HTTP_METHOD_PUT, "/notes/1", "\"b\"", "204 "},
      {HTTP_METHOD_GET, "/notes/1", "", "200 \"b\""},
      {HTTP_METHOD_PUT, "/notes/9", "1", missing},
      {HTTP_METHOD_PUT, "/notes/1", '"' + std::string(65536, 'x') + '"',
       R"(413 {"error":{"code":413,"message":"Content Too Large")"},
      {HTTP_METHOD_DELETE, "/notes/2", "", "204 "},
      {HTTP_METHOD_DELETE, "/notes/2", "", missing},
      {HTTP_METHOD_POST, "/notes", "3", "201 {\"id\":3}/notes/3"},
      {HTTP_METHOD_GET, "/notes", "", "200 [1,3]"},
      {HTTP_METHOD_GET, "/notes/1x", "", missing},
      {HTTP_METHOD_GET, "/notes/", "", "200 [1,3]"},
      {HTTP_METHOD_PATCH, "/notes/1", "1",
       R"(405 {"error":{"code":405,"message":"Method Not Allowed)"},
  };
  for (const auto& s : steps) {
    EXPECT_EQ(s.answer, ask(s.method, s.uri, s.body)) << s.method << " " << s.uri;
  }
}

}  // namespace
