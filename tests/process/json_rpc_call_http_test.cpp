// The command-line client over HTTP, against a server that answers by script.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/process/call_process.h"
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

/// Whether `request` holds all of that, and nothing of the other.
struct Sent {
  std::vector<std::string> parts;
  std::vector<std::string> absent;
};
void expect_sent(const std::string& request, const Sent& sent) {
  for (const std::string& part : sent.parts) EXPECT_THAT(request, HasSubstr(part));
  for (const std::string& part : sent.absent) EXPECT_THAT(request, Not(HasSubstr(part)));
}

TEST(JsonRpcCallHttpTest, SendsWhatIsAskedForAndPrintsTheReply) {
  struct Case {
    Words options;
    Words words;
    std::string reply;
    std::string outcome;
    Sent sent;
  };
  const std::string error = R"({"code":-32601,"message":"no"})";
  const Case cases[] = {
      {{},
       {"sum", "[1,2]"},
       three,
       "0|3\n|",
       {{"POST /rpc?x=1 HTTP/1.1\r\n", "Content-Type: application/json\r\n", "chunked",
         "\"method\":\"sum\"", "\"params\":[1,2]", "\"id\":"},
        {"Content-Length"}}},
      {{"--no-stream"}, {"sum", "[1,2]"}, three, "0|3\n|", {{"Content-Length: "}, {"chunked"}}},
      {{"--header", "X-Key:  a b"}, {"sum"}, three, "0|3\n|", {{"X-Key: a b\r\n"}, {"params"}}},
      {{"--agent", "a"}, {"m"}, three, "0|3\n|", {{"\"agent.call\"", R"("agent":"a")"}, {}}},
      {{},
       {"m"},
       reply("200 OK", R"({"jsonrpc":"2.0","id":"1","error":)" + error + "}"),
       "1||" + error + "\n",
       {}},
      {{"--notify"}, {"m", "[7]"}, no_content, "0||", {{"\"params\":[7]"}, {"\"id\""}}},
      {{"--notify"}, {"m"}, reply("500 Oh", "{}"), "2||", {{"\"m\""}, {"\"id\"", "params"}}},
      {{}, {"m"}, reply("502 Bad", "<p>", "text/html"), "2||json_rpc_call: the server answers", {}},
      {{}, {"m"}, reply("200 OK", "[]"), "2||json_rpc_call: what the server sent", {}},
      {{"--rest", "GET"}, {}, reply("200 OK", "[1]"), "0|[1]\n|", {{"GET /rpc?x=1 "}, {}}},
      {{"--rest", "PUT"}, {"[5]"}, no_content, "0|null\n|", {{"PUT /", "[5]", "chunked"}, {}}},
      {{"--rest", "POST", "--no-stream"},
       {"[5]"},
       reply("201 Created", "{}"),
       "0|{}\n|",
       {{"POST /", "Content-Length: 3\r\n", "\r\n\r\n[5]"}, {"chunked"}}},
      {{"--rest", "DELETE"},
       {},
       reply("404 Not Found", R"({"why":1})"),
       "1||json_rpc_call: the server answers with status 404\n{\"why\":1}\n",
       {{"DELETE /"}, {}}},
      {{"--rest", "GET"},
       {},
       reply("404 Not Found", "<p>", "text/html"),
       "1||json_rpc_call: the server answers with status 404\n",
       {}},
      {{"--rest", "GET"}, {}, reply("200 OK", "<p>", "text/html"), "2||json_rpc_call: ", {}},
      {{"--form", "a b=x/y", "--form", "k="},
       {},
       reply("200 OK", "true"),
       "0|true\n|",
       {{"POST /", "application/x-www-form-urlencoded", "\r\n\r\na+b=x%2fy&k="}, {}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outcome + " of " + c.reply);
    Scripted_HTTP_Server server({{{c.reply}}});
    Words words = c.options;
    words.push_back("http://127.0.0.1:" + std::to_string(server.port()) + "/rpc?x=1");
    words.insert(words.end(), c.words.begin(), c.words.end());
    EXPECT_THAT(run(words), StartsWith(c.outcome));
    expect_sent(server.request(), c.sent);
  }
  Scripted_HTTP_Server server({{{three}, {three}}});
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port());
  EXPECT_THAT(run({"--bench", "2", url, "sum"}), StartsWith("0|calls    2\n"));
}

TEST(JsonRpcCallHttpTest, FailuresAreOneLineAndCanBeTriedAgain) {
  EXPECT_THAT(run({"http://127.0.0.1:1/", "m"}),
              AllOf(StartsWith("2||json_rpc_call: "), HasSubstr("refused")));
  Scripted_HTTP_Server server({{{"", Scripted_Reply::reset}}, {{three}}});
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port());
  const Temporary_Directory directory;
  const std::string file = "@" + directory.write("params", "[1,2]");
  EXPECT_EQ("0|3\n|", run({"--retries", "1", url, "sum", file}));
  EXPECT_EQ(2u, server.requests().size());
  EXPECT_THAT(server.request(), HasSubstr("[1,2]"));
  Scripted_HTTP_Server silent({{{"", Scripted_Reply::stall}}});
  const std::string deaf = "http://127.0.0.1:" + std::to_string(silent.port());
  EXPECT_THAT(run({"--timeout", "1", deaf, "m"}), StartsWith("2||json_rpc_call: "));
  EXPECT_THAT(run({url, "m", "-"}, "[1,x]"),
              AllOf(StartsWith("2||"), HasSubstr("standard input is no JSON")));
}

/// Makes a certificate for 127.0.0.1, signed by itself, with its key in the same file; its path.
std::string make_certificate(const Temporary_Directory& directory, const std::string& name) {
  const std::string path = directory / name;
  const std::string make =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=x "
      "-addext subjectAltName=IP:127.0.0.1 -keyout " +
      path + " -out " + path + ".c 2>/dev/null && cat " + path + ".c >> " + path;
  EXPECT_EQ(0, std::system(make.c_str()));
  return path;
}

TEST(JsonRpcCallHttpTest, TrustsTheCertificatesThatItIsGiven) {
  const Temporary_Directory directory;
  const std::string good = make_certificate(directory, "good");
  const std::string other = make_certificate(directory, "other");
  const auto untrusted = AllOf(StartsWith("2||json_rpc_call: "), HasSubstr("certificate"));
  Scripted_HTTP_Server server({{{three}}, {{three}}, {{three}}, {{three}}}, good);
  const std::string url = "https://127.0.0.1:" + std::to_string(server.port()) + "/";
  EXPECT_EQ("0|3\n|", run({"--cacert", good, url, "m"}));
  EXPECT_THAT(run({"--cacert", other, url, "m"}), untrusted);
  EXPECT_THAT(run({url, "m"}), untrusted);
  EXPECT_THAT(run({"--insecure", url, "m"}), StartsWith("0|3\n|json_rpc_call: --insecure"));
  EXPECT_THAT(run({"--cacert", "/nowhere", url, "m"}), StartsWith("2||json_rpc_call: --cacert"));
}

}  // namespace
