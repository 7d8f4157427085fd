// The command-line client over HTTP, against a server that answers by script.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/process/call_process.h"
#include "tests/process/http_client.h"
#include "tests/support/scripted_http_server.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string reply(const std::string& status, const std::string& body,
                  const std::string& type = "application/json") {
  return "HTTP/1.1 " + status + "\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

const std::string three = reply("200 OK", R"({"jsonrpc":"2.0","id":"1","result":3})");
const std::string no_content = "HTTP/1.1 204 No Content\r\n\r\n";

/// The words of a command line that stands with a bar between them; "@" is the server's address.
Words words_of(const std::string& line, const std::string& url) {
  Words words;
  std::istringstream text(line);
  for (std::string word; std::getline(text, word, '|');) words.push_back(word == "@" ? url : word);
  return words;
}

TEST(JsonRpcCallHttpTest, SendsWhatIsAskedForAndPrintsTheReply) {
  const std::string error = R"({"code":-32601,"message":"no"})";
  const std::string refusal = R"({"jsonrpc":"2.0","id":"1","error":)" + error + "}";
  const std::string page = reply("404 Not Found", "<p>", "text/html");
  const std::string missing = reply("404 Not Found", R"({"why":1})");
  const std::string not_found = "1||json_rpc_call: the server answers with status 404\n";
  const struct {
    const char* line;
    std::string reply;
    std::string outcome;
    Words sent;
    Words absent;
  } cases[] = {
      {"@|sum|[1,2]", three, "0|3\n|", {"POST /rpc?x=1 HTTP/1.1\r\n", "/json\r\n", "chunked"}, {}},
      {"@|sum|[1,2]", three, "0|3\n|", {"\"sum\"", "[1,2]", "\"id\":"}, {"Content-Length"}},
      {"--no-stream|@|sum|[1,2]", three, "0|3\n|", {"Content-Length: "}, {"chunked"}},
      {"--header|X-Key:  a b|@|sum", three, "0|3\n|", {"X-Key: a b\r\n"}, {"params"}},
      {"--agent|a|@|m", three, "0|3\n|", {"\"agent.call\"", R"("agent":"a")"}, {}},
      {"@|m", reply("200 OK", refusal), "1||" + error + "\n", {}, {}},
      {"--notify|@|m|[7]", no_content, "0||", {"\"params\":[7]"}, {"\"id\""}},
      {"--notify|@|m", reply("500 Oh", "{}"), "2||", {"\"m\""}, {"\"id\"", "params"}},
      {"@|m", reply("502 Bad", "<p>", "text/html"), "2||json_rpc_call: the server answers", {}, {}},
      {"@|m", reply("200 OK", "[]"), "2||json_rpc_call: what the server sent", {}, {}},
      {"--rest|GET|@", reply("200 OK", "[1]"), "0|[1]\n|", {"GET /rpc?x=1 "}, {}},
      {"--rest|PUT|@|[5]", no_content, "0|null\n|", {"PUT /", "[5]", "chunked"}, {}},
      {"--rest|POST|--no-stream|@|[5]", reply("201 Created", "{}"), "0|{}\n|", {"Length: 3"}, {}},
      {"--rest|DELETE|@", missing, not_found + "{\"why\":1}\n", {"DELETE /"}, {}},
      {"--rest|GET|@", page, not_found, {}, {}},
      {"--rest|GET|@", reply("200 OK", "<p>", "text/html"), "2||json_rpc_call: ", {}, {}},
      {"--form|a b=x/y|--form|k=|@", three, "0|{", {"www-form-urlencoded", "\na+b=x%2fy&k="}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.line) + ", " + c.reply);
    Scripted_HTTP_Server server({{{c.reply}}});
    EXPECT_THAT(run(words_of(c.line, server.url() + "/rpc?x=1")), StartsWith(c.outcome));
    for (const std::string& part : c.sent) EXPECT_THAT(server.request(), HasSubstr(part));
    for (const std::string& part : c.absent) EXPECT_THAT(server.request(), Not(HasSubstr(part)));
  }
  Scripted_HTTP_Server server({{{three}, {three}}});
  EXPECT_THAT(run({"--bench", "2", server.url(), "sum"}), StartsWith("0|calls    2\n"));
}

TEST(JsonRpcCallHttpTest, FailuresAreOneLineAndCanBeTriedAgain) {
  EXPECT_THAT(run({"http://127.0.0.1:1/", "m"}),
              AllOf(StartsWith("2||json_rpc_call: "), HasSubstr("refused")));
  Scripted_HTTP_Server server({{{"", Scripted_Reply::reset}}, {{three}}});
  const std::string url = server.url();
  const Temporary_Directory directory;
  const std::string file = "@" + directory.write("params", "[1,2]");
  EXPECT_EQ("0|3\n|", run({"--retries", "1", url, "sum", file}));
  EXPECT_EQ(2u, server.requests().size());
  EXPECT_THAT(server.request(), HasSubstr("[1,2]"));
  Scripted_HTTP_Server silent({{{"", Scripted_Reply::stall}}});
  EXPECT_THAT(run({"--timeout", "1", silent.url(), "m"}), StartsWith("2||json_rpc_call: "));
  EXPECT_THAT(run({url, "m", "-"}, "[1,x]"),
              AllOf(StartsWith("2||"), HasSubstr("standard input is no JSON")));
}

TEST(JsonRpcCallHttpTest, TrustsTheCertificatesThatItIsGiven) {
  const Certificates certificates;
  for (const char* name : {"server", "client"}) certificates.sign(name, "IP:127.0.0.1");
  const std::string good = certificates.file("ca"), other = certificates.file("client");
  const auto untrusted = AllOf(StartsWith("2||json_rpc_call: "), HasSubstr("certificate"));
  Scripted_HTTP_Server server({{{three}}, {{three}}, {{three}}, {{three}}},
                              certificates.file("server"));
  const std::string url = server.url("https") + "/";
  EXPECT_EQ("0|3\n|", run({"--cacert", good, url, "m"}));
  EXPECT_THAT(run({"--cacert", other, url, "m"}), untrusted);
  EXPECT_THAT(run({url, "m"}), untrusted);
  EXPECT_THAT(run({"--insecure", url, "m"}), StartsWith("0|3\n|json_rpc_call: --insecure"));
  EXPECT_THAT(run({"--cacert", "/nowhere", url, "m"}), StartsWith("2||json_rpc_call: --cacert"));
}

}  // namespace
