// What clients of the HTTP front get: statuses, WebSocket, and who is kept out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/process/host_fixture.h"
#include "tests/process/http_client.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string sum = request("sum", "[1,2]", "1");
const std::string summed = result("1", "3") + "\n";

/// A request in chunks of the caller's making.
std::string chunked(const std::string& chunks) {
  return "POST /rpc HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
         "Transfer-Encoding: chunked\r\n\r\n" +
         chunks;
}

std::string chunk(const std::string& text) {
  char size[16];
  std::snprintf(size, sizeof size, "%zx", text.size());
  return size + ("\r\n" + text + "\r\n");
}

class HttpFrontTest : public Host_Fixture {
protected:
  /// At an HTTP listener, unless the options begin with another.
  void start(Words options = {}, const std::string& pool = "-n 4") {
    if (options.empty() || options[0] != "--listen") {
      options.insert(options.end(), {"--listen", "http://127.0.0.1:0"});
    }
    Host_Fixture::start(std::move(options), pool);
  }

  Http_Answer answer(const std::string& text) const {
    Wire_Client client(url());
    EXPECT_TRUE(client.send(text));
    return http_answer(client, text.rfind("HEAD ", 0) == 0);
  }
  /// The client's side of an opened WebSocket.
  std::unique_ptr<Wire_Client> websocket(std::size_t door = 0) const {
    auto client = std::make_unique<Wire_Client>(host_->urls().at(door));
    client->send(websocket_handshake());
    const std::string head = client->until("\r\n\r\n");
    EXPECT_THAT(head, StartsWith("HTTP/1.1 101 "));
    EXPECT_THAT(head, HasSubstr("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"));
    return client;
  }
};

TEST_F(HttpFrontTest, EveryRequestGetsItsStatusAndTheNextItsAnswer) {
  start({"--max-message", "1000"});
  const std::string large = request("echo", "\"" + std::string(1000, 'x') + "\"", "1");
  const std::string type = "Content-Type: application/json\r\n";
  const auto head = [](const std::string& fields) {
    return "POST /rpc HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n";
  };
  const struct {
    std::string text;
    int status;
    std::string part;
    bool closes = false;
  } cases[] = {
      {http_post(sum), 200, summed},
      {http_post(sum, "", "http://localhost:80/rpc?x"), 200, summed},
      {http_post(sum, "", "/a/%2e%2e/r%70c"), 200, summed},
      {head("content-TYPE: Application/Json; charset=utf-8\r\nContent-Length: 2\r\n") + "[]", 400,
       "-32600"},
      {http_post(request("nothing", "[]", "1")), 200, "-32601"},
      {http_post(request("throw", "[]", "1")), 200, "-32603"},
      {http_post(request("sum", "[1,2]")), 200, ""},
      {http_post("x"), 400, error("null", -32700, "Parse error")},
      {http_post(""), 400, error("null", -32700, "Parse error")},
      {http_post("[" + sum + "]"), 400, error("null", -32600, "Invalid Request")},
      {http_post(R"({"id":4})"), 400, error("4", -32600, "Invalid Request")},
      {http_post(result("4", "1")), 400, error("null", -32600, "Invalid Request")},
      {chunked(chunk(sum.substr(0, 9)) + chunk(sum.substr(9)) + "0\r\nX: y\r\n\r\n"), 200, summed},
      {chunked("5;a=b\r\n" + sum.substr(0, 5) + "\r\n" + chunk(sum.substr(5)) + "0\r\n\r\n"), 200,
       summed},
      {head("Content-Length: 2\r\n") + "[]", 415, "\"code\":415"},
      {head("Content-Type: text/plain\r\nContent-Length: 2\r\n") + "[]", 415, "\"code\":415"},
      {http_get("/rpc"), 405, "\"code\":405"},
      {http_get("/nothing"), 404, "\"code\":404"},
      {"OPTIONS * HTTP/1.1\r\nHost: h\r\n\r\n", 403, "\"code\":403"},
      {http_post(sum, "X: " + std::string(60000, 'x') + "\r\n"), 200, summed},
      {chunked(chunk(sum) + "0\r\nX: " + std::string(60000, 'x') + "\r\n\r\n"), 200, summed},
      {chunked(chunk(sum) + "0\r\nX: " + std::string(70000, 'x') + "\r\n\r\n"), 400, "", true},
      {chunked("1;" + std::string(70000, 'x') + "\r\n[\r\n0\r\n\r\n"), 400, "", true},
      {http_get("/%"), 400, "\"code\":400", true},
      {http_post(large), 413, "\"code\":413", true},
      {chunked(chunk(large)), 413, "\"code\":413", true},
      {http_get("/", "X: " + std::string(70000, 'x') + "\r\n"), 431, "\"code\":431", true},
      {http_get("/" + std::string(70000, 'x')), 431, "\"code\":431", true},
      {"BREW / HTTP/1.1\r\nHost: localhost\r\n\r\n", 501, "\"code\":501", true},
      {head(type + "Expect: 200-ok\r\nContent-Length: 2\r\n"), 417, "\"code\":417", true},
      // What one server could read otherwise than another.
      {head(type + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n") + "[]", 400, "", true},
      {head(type + "Transfer-Encoding: chunked\r\nContent-Length: 2\r\n") + "[]", 400, "", true},
      {head(type + "Content-Length: 2\r\nContent-Length: 3\r\n") + "[]", 400, "", true},
      {head(type + "Content-Length: +2\r\n") + "[]", 400, "", true},
      {head(type + "Content-Length: -2\r\n") + "[]", 400, "", true},
      {head(type + "Content-Length: 2 2\r\n") + "[]", 400, "", true},
      {head(type + "Content-Length: 0x2\r\n") + "[]", 400, "", true},
      {head(type + "Content-Length: 99999999999999999999\r\n") + "[]", 400, "", true},
      {head(type + "Transfer-Encoding: gzip, chunked\r\n"), 501, "", true},
      {head(type + "Transfer-Encoding: gzip\r\n"), 501, "", true},
      {head(type + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n"), 400, "", true},
      {head(type + "Transfer-Encoding:\r\n"), 501, "", true},
      {head(type + "Transfer-Encoding : chunked\r\n"), 400, "", true},
      {"POST /rpc HTTP/1.0\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n", 400, "",
       true},
      {head("X: a\nY: b\r\n"), 400, "", true},
      {head("X: a\rY: b\r\n"), 400, "", true},
      {head(std::string("X: a\0b\r\n", 8)), 400, "", true},
      {head("no field\r\n"), 400, "", true},
      {"GET / HTTP/1.1\nHost: localhost\n\n", 400, "", true},
      {"GET / HTTP/1.1\r\n\r\n", 400, "", true},
      {head("Host: localhost\r\n"), 400, "", true},
      {"GET /a b HTTP/1.1\r\nHost: localhost\r\n\r\n", 400, "", true},
      {"GET / HTTP/2.0\r\nHost: localhost\r\n\r\n", 400, "", true},
      {"GET /\r\n\r\n", 400, "", true},
      {"\x16\x03\x01 no HTTP\r\n\r\n", 400, "", true},
      {chunked("x\r\n"), 400, "", true},
      {chunked("-1\r\n"), 400, "", true},
      {chunked("0x5\r\n\r\n"), 400, "", true},
      {chunked(" 5\r\n[1,2]\r\n"), 400, "", true},
      {chunked("\r\n"), 400, "", true},
      {chunked("5\n[1,2]\r\n"), 400, "", true},
      {chunked("1\r\n[]\r\n\r\n"), 400, "", true},
      {chunked("1\r\n[\n0\r\n\r\n"), 400, "", true},
      {chunked("10000000000000001\r\n[]"), 400, "", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 200));
    Wire_Client client(url());
    ASSERT_TRUE(client.send(c.text));
    const Http_Answer got = http_answer(client);
    EXPECT_EQ(c.status, got.status);
    EXPECT_THAT(got.body, HasSubstr(c.part));
    if (c.status != 200) {
      json_spirit::Value body;
      EXPECT_TRUE(json_read(got.body.data(), got.body.size(), body)) << got.body;
      EXPECT_THAT(got.head, HasSubstr("\r\nContent-Type: application/json\r\n"));
    }
    EXPECT_EQ(c.status == 405, got.head.find("\r\nAllow: POST\r\n") != std::string::npos);
    EXPECT_EQ(c.closes, got.head.find("\r\nConnection: close\r\n") != std::string::npos);
    if (c.closes) {
      EXPECT_EQ("", client.rest());
    } else {
      client.send(http_post(sum));
      EXPECT_EQ(summed, http_answer(client).body);
    }
  }
}

TEST_F(HttpFrontTest, RequestsOfAConnectionAreAnsweredInOrder) {
  start();
  Wire_Client client(url());
  const std::string all = http_post(sleeper(300)) + http_post(sum) + http_post(request("n", "[]")) +
                          http_get("/nothing") + http_post(sleeper(100, "2"), "X: y\r\n") +
                          "HEAD /nothing HTTP/1.1\r\nHost: localhost\r\n\r\n" + http_post(sum);
  ASSERT_TRUE(client.send(all));
  client.half_close();
  EXPECT_EQ(result("1", "300") + "\n", http_answer(client).body);
  EXPECT_EQ(summed, http_answer(client).body);
  EXPECT_EQ("", http_answer(client).body);
  EXPECT_EQ(404, http_answer(client).status);
  EXPECT_EQ(result("2", "100") + "\n", http_answer(client).body);
  EXPECT_EQ(404, http_answer(client, true).status);
  EXPECT_EQ(summed, http_answer(client).body);
  EXPECT_EQ("", client.rest());

  Wire_Client slow(url());
  ASSERT_TRUE(slow.send(all, 1));
  for (int i = 0; i < 7; ++i) EXPECT_NE(0, http_answer(slow, i == 5).status) << i;
}

TEST_F(HttpFrontTest, VersionsAndExpectationsAreKept) {
  start({"--max-message", "100000", "--stall-timeout", "30", "--max-queue", "100000"});
  const std::string large = request("echo", "\"" + std::string(90000, 'x') + "\"", "1");
  {
    Wire_Client client(url());
    const std::string text = http_post(sum, "Expect: 100-continue\r\n");
    client.send(text.substr(0, text.size() - sum.size()));
    EXPECT_EQ("HTTP/1.1 100 Continue\r\n\r\n", client.until("\r\n\r\n"));
    client.send(sum);
    EXPECT_EQ(summed, http_answer(client).body);
    client.send(
        "POST /rpc HTTP/1.1\r\nHost: localhost\r\nExpect: 100-continue\r\n"
        "Content-Length: 99\r\n\r\n");
    EXPECT_EQ(415, http_answer(client).status) << "the body is not asked for";
    EXPECT_EQ("", client.rest());
  }
  {
    Wire_Client client(url());
    const std::string old = "POST /rpc HTTP/1.0\r\nContent-Type: application/json\r\n";
    const std::string length = "Content-Length: " + std::to_string(sum.size()) + "\r\n\r\n";
    client.send(old + "Connection: keep-alive\r\n" + length + sum);
    EXPECT_THAT(http_answer(client).head, HasSubstr("\r\nConnection: keep-alive\r\n"));
    client.send(old + length + sum);
    EXPECT_THAT(client.rest(), HasSubstr(summed));
  }
  {
    Wire_Client client(url());
    client.send(http_post(sum, "Connection: close\r\n") + http_post(sum));
    const std::string all = client.rest();
    EXPECT_EQ(all.find(summed), all.rfind(summed)) << "what stands behind the last is not read";
  }
  Wire_Client client(url());
  client.send(http_post(large));
  EXPECT_EQ(90000 + summed.size() + 1, http_answer(client).body.size());
  const std::string call = request("blob", R"({"bytes":300000})", "1");
  const std::string streamed = result("1", blob(300000)) + "\n";
  client.send(http_post(call));
  const Http_Answer in_chunks = http_answer(client);
  EXPECT_THAT(in_chunks.head, HasSubstr("\r\nTransfer-Encoding: chunked\r\n"));
  EXPECT_TRUE(streamed == in_chunks.body);
  client.send("POST /rpc HTTP/1.0\r\nContent-Type: application/json\r\nContent-Length: " +
              std::to_string(call.size()) + "\r\n\r\n" + call);
  EXPECT_TRUE(streamed == http_answer(client).body) << "up to the end of the connection";
}

TEST_F(HttpFrontTest, AStalledRequestIsAnsweredAndClosed) {
  start({"--stall-timeout", "1"});
  const std::string whole = http_post(sum);
  Wire_Client head(url()), body(url()), slow_head(url()), slow_body(url()), owed(url()),
      idle(url());
  head.send(whole.substr(0, 30));
  body.send(whole.substr(0, whole.size() - 5));
  slow_body.send(whole.substr(0, whole.size() - 5));
  owed.send(http_post(sleeper(2500)));
  for (int i = 0; i < 5; ++i) {  // a head has so long in all, a body from byte to byte
    std::this_thread::sleep_for(std::chrono::milliseconds(350));
    slow_head.send(whole.substr(i, 1));
    slow_body.send(whole.substr(whole.size() - 5 + i, 1));
  }
  for (Wire_Client* client : {&head, &body, &slow_head}) {
    EXPECT_EQ(408, http_answer(*client).status);
    EXPECT_EQ("", client->rest());
  }
  EXPECT_EQ(summed, http_answer(slow_body).body);
  EXPECT_EQ(result("1", "2500") + "\n", http_answer(owed).body);
  idle.send(whole);
  EXPECT_EQ(summed, http_answer(idle).body);
}

TEST_F(HttpFrontTest, PagesOfOtherSitesAreKeptOut) {
  start({"--allow-origin", "https://good.example", "--allow-host", "host.example", "--listen",
         "http://127.0.0.1:0"});
  const struct {
    std::string host;
    std::string origin;
    int status;
    bool tells = false;
  } cases[] = {
      {"host.example", "", 200},
      {"other.example", "", 403},
      {"localhost", "http://localhost", 200},
      {"localhost", "null", 403},
      {"localhost", "https://good.example", 200, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.host + " " + c.origin);
    std::string fields = "Host: " + c.host + "\r\n";
    if (!c.origin.empty()) fields += "Origin: " + c.origin + "\r\n";
    const auto with = [&](std::string text) {
      return text.replace(text.find("Host: localhost\r\n"), 17, fields);
    };
    const std::string allowed = "Access-Control-Allow-Origin: " + c.origin + "\r\n";
    const Http_Answer called = answer(with(http_post(sum)));
    EXPECT_EQ(c.status, called.status);
    EXPECT_EQ(c.tells, called.head.find(allowed) != std::string::npos);
    EXPECT_EQ(c.status == 200 ? 101 : 403, answer(with(websocket_handshake())).status);
    const Http_Answer asked =
        answer(with("OPTIONS /rpc HTTP/1.1\r\nHost: localhost\r\n"
                    "Access-Control-Request-Method: POST\r\n\r\n"));
    EXPECT_EQ(c.tells ? 204 : c.status == 200 ? 405 : 403, asked.status);
    EXPECT_EQ(c.tells, asked.head.find("Access-Control-Allow-Headers: Content-Type\r\n") !=
                           std::string::npos);
  }
}

TEST_F(HttpFrontTest, EachListenerServesItsMethodsAtItsPath) {
  start({"--listen", "http://127.0.0.1:0", "--rpc-path", "/a", "--deny-method", "s*", "--listen",
         "http://127.0.0.1:0", "--allow-method", "sum", "--listen", "tcp://127.0.0.1:0",
         "--allow-method", "sum", "--deny-method", "sum", "--listen", "ws://127.0.0.1:0"});
  const auto code = [&](std::size_t door, const std::string& target, const char* method) {
    Wire_Client client(host_->urls().at(door));
    client.send(http_post(request(method, "[]", "1"), "", target));
    const Http_Answer answer = http_answer(client);
    return answer.body.find("-32601") != std::string::npos ? -32601 : answer.status;
  };
  EXPECT_EQ(404, code(0, "/rpc", "echo"));
  EXPECT_EQ(200, code(0, "/a", "echo"));
  EXPECT_EQ(-32601, code(0, "/a", "sum"));
  EXPECT_EQ(200, code(1, "/rpc", "sum"));
  EXPECT_EQ(-32601, code(1, "/rpc", "echo"));
  EXPECT_EQ(426, code(3, "/rpc", "sum"));
  Host_Client stream(host_->urls()[2]);
  EXPECT_EQ(error("1", -32601, "Method not found"), stream.call(sum));
  const auto socket = websocket(3);
  socket->send(websocket_text(sum));
  EXPECT_EQ(result("1", "3"), websocket_answer(*socket));
}

TEST_F(HttpFrontTest, ABusyOrStoppingHostSaysSo) {
  start({"--drain", "1", "--threads", "1"}, "-n 1 -h 2 -l 1");
  std::vector<std::unique_ptr<Wire_Client>> clients;
  for (int i = 0; i < 5; ++i) {
    clients.push_back(std::make_unique<Wire_Client>(url()));
    clients.back()->send(http_post(sleeper(300)));
  }
  int busy = 0;
  for (const auto& client : clients) {
    const Http_Answer answer = http_answer(*client);
    const std::string refused = error("1", -32000, "Server busy") + "\n";
    EXPECT_EQ(answer.status == 200 ? result("1", "300") + "\n" : refused, answer.body);
    busy += answer.status == 503;
  }
  EXPECT_THAT(busy, ::testing::AllOf(::testing::Ge(1), ::testing::Le(3)));

  clients[0]->send(http_post(sleeper(60000)));
  clients[1]->send(http_post(sum));  // on the same loop: read after the sleeper
  EXPECT_EQ(summed, http_answer(*clients[1]).body);
  host_->signal(SIGTERM);
  host_->wait_for_log("Stopping on signal");
  const std::string stopping = error("1", -32001, "Server is stopping") + "\n";
  Http_Answer late{200, "", summed};
  // A moment may pass until it stops. One request a connection: it closes behind an answer then.
  for (std::size_t i = 1; i < clients.size() && late.status == 200 && late.body == summed; ++i) {
    if (i > 1) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    clients[i]->send(http_post(sum));
    late = http_answer(*clients[i]);
  }
  for (const Http_Answer& answer : {late, http_answer(*clients[0])}) {
    EXPECT_EQ(503, answer.status);
    EXPECT_EQ(stopping, answer.body);
  }
  for (const auto& client : clients) EXPECT_EQ("", client->rest());
  clients.clear();
  EXPECT_EQ(0, host_->wait());
  host_.reset();
}

TEST_F(HttpFrontTest, ResourcesAndFilesAreServed) {
  const Temporary_Directory directory;
  const std::string notes =
      directory.write("restful.json", R"([{"uri":"/notes","dll":")" SAMPLE_PLUGIN_DIR
                                      R"(/libnote.so","init":"make_notes","params":"2"}])");
  directory.write("page.html", std::string(200000, 'p'));
  const std::string site =
      directory.write("site.json", R"({"files":{"/f":")" + directory / "" +
                                       R"("},"redirects":{"/old":"https://new.example/x"}})");
  start({"--site", site}, "-n 4 -r " + notes);
  Wire_Client client(url());
  const struct {
    const char* method;
    const char* target;
    std::string body;
    int status;
    std::string answer;
  } steps[] = {
      {"GET", "/notes", "", 200, "[]"},
      {"POST", "/notes/", "[5]", 201, "{\"id\":1}"},
      {"POST", "/notes?x", "6", 201, "{\"id\":2}"},
      {"POST", "/notes", "7", 503, "There is no room"},
      {"POST", "/notes", "[", 400, "\"code\":400"},
      {"PUT", "/notes/1", "\"b\"", 204, ""},
      {"PUT", "/notes/9", "1", 404, "Not Found"},
      {"PUT", "/notes/1", '"' + std::string(65536, 'x') + '"', 413, "\"code\":413"},
      {"GET", "/notes/1?x", "", 200, "\"b\""},
      {"DELETE", "/notes/2", "", 204, ""},
      {"DELETE", "/notes/2", "", 404, "Not Found"},
      {"GET", "/notes", "", 200, "[1]"},
      {"PATCH", "/notes/1", "1", 405, "Method Not Allowed"},
  };
  for (const auto& s : steps) {
    SCOPED_TRACE(std::string(s.method) + " " + s.target);
    std::string text = http_post(s.body, "", s.target);
    client.send(text.replace(0, 4, s.method));
    const Http_Answer got = http_answer(client);
    EXPECT_EQ(s.status, got.status);
    EXPECT_THAT(got.body, HasSubstr(s.answer));
    EXPECT_EQ(s.status == 201, got.head.find("\r\nLocation: /notes/") != std::string::npos);
  }
  client.send(http_get("/f/page.html", "Range: bytes=199990-\r\n") + http_get("/f/page.html") +
              "HEAD /f/page.html HTTP/1.1\r\nHost: localhost\r\n\r\n" + http_get("/old/a?b"));
  EXPECT_EQ("pppppppppp", http_answer(client).body);
  EXPECT_EQ(std::string(200000, 'p'), http_answer(client).body);
  EXPECT_THAT(http_answer(client, true).head, HasSubstr("\r\nContent-Length: 200000\r\n"));
  EXPECT_THAT(http_answer(client).head, HasSubstr("\r\nLocation: https://new.example/x/a?b\r\n"));
}

TEST_F(HttpFrontTest, AWebSocketCarriesMessagesBothWays) {
  start({"--max-queue", "262144"});
  const auto client = websocket(), other = websocket();
  const auto call = [&](const std::string& frames) {
    client->send(frames);
    return websocket_answer(*client);
  };
  EXPECT_EQ(result("1", "3"), call(websocket_text(sum)));
  // A message in frames, with a ping between them, byte by byte.
  ASSERT_TRUE(client->send(websocket_frame(0x01, sum.substr(0, 5)) + websocket_frame(0x89, "ping") +
                               websocket_frame(0x00, "") + websocket_frame(0x80, sum.substr(5)),
                           1));
  EXPECT_EQ("8a ping", websocket_answer(*client));
  EXPECT_EQ(result("1", "3"), websocket_answer(*client));
  EXPECT_EQ(error("null", -32700, "Parse error"), call(websocket_text("{")));
  EXPECT_EQ(error("null", -32700, "Parse error"), call(websocket_text("")));
  EXPECT_EQ(result("1", "3"), call(websocket_frame(0x8a, "unasked") + websocket_text(sum)));
  for (const std::size_t size : {125, 126, 65535, 65536, 1000000}) {
    const std::string text = "\"" + std::string(size, 'x') + "\"";
    EXPECT_EQ(result("1", text), call(websocket_text(request("echo", text, "1")))) << size;
  }
  EXPECT_EQ(result("1", "\"\u00e9\u20ac\""),
            call(websocket_text(request("echo", "\"\u00e9\u20ac\"", "1"))));

  // One that is written piece by piece comes in fragments, and nothing comes between them.
  client->send(websocket_text(request("blob", R"({"bytes":300000})", "1")) + websocket_text(sum));
  std::string streamed, frame;
  bool whole = false, answered = false;  // in either order
  while (!(whole && answered) && (frame = websocket_answer(*client)) != "closed") {
    if (frame == result("1", "3")) {
      EXPECT_TRUE(streamed.empty() || whole);
      answered = true;
    } else {
      streamed += frame.substr(3);
      whole = frame.substr(0, 2) == "80";
    }
  }
  EXPECT_TRUE(streamed == result("1", blob(300000)));

  EXPECT_EQ(result("1", "true"), call(websocket_text(subscription())));
  other->send(websocket_text(request("n", "[5]")));
  std::string event = websocket_answer(*client);
  EXPECT_EQ(R"({"jsonrpc":"2.0","method":"n","params":[5]})", event);
  EXPECT_EQ("close 1000", call(websocket_close(1000)));
  EXPECT_EQ("", client->rest());
}

TEST_F(HttpFrontTest, ABadWebSocketIsClosedWithItsCode) {
  start({"--max-message", "1000", "--stall-timeout", "1"});
  const std::string large(1001, ' ');
  const std::string euro = "\"\xe2\x82\xac\"";
  const struct {
    const char* name;
    std::string bytes;
    std::string answer;
  } cases[] = {
      {"binary", websocket_frame(0x82, sum), "close 1003"},
      {"large", websocket_text(large), "close 1009"},
      {"large in frames", websocket_frame(0x01, large.substr(1)) + websocket_frame(0x80, "  "),
       "close 1009"},
      {"no UTF-8", websocket_text("\"\xff\""), "close 1007"},
      {"cut UTF-8", websocket_text(euro.substr(0, 3)), "close 1007"},
      {"not masked", std::string("\x81\x00", 2), "close 1002"},
      {"reserved bit", websocket_frame(0xc1, sum), "close 1002"},
      {"reserved code", websocket_frame(0x83, sum), "close 1002"},
      {"end of nothing", websocket_frame(0x80, sum), "close 1002"},
      {"message in a message", websocket_frame(0x01, sum) + websocket_text(sum), "close 1002"},
      {"ping in frames", websocket_frame(0x09, "a"), "close 1002"},
      {"long ping", websocket_frame(0x89, std::string(126, 'x')), "close 1002"},
      {"short close", websocket_frame(0x88, "x"), "close 1002"},
      {"bad close code", websocket_close(1005), "close 1002"},
      {"close without code", websocket_frame(0x88, ""), "close 1000"},
      {"close with another code", websocket_close(3000), "close 3000"},
  };
  const auto begin = std::chrono::steady_clock::now();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto client = websocket();
    client->send(websocket_text(sum));
    EXPECT_EQ(result("1", "3"), websocket_answer(*client));
    client->send(c.bytes);
    std::string got = websocket_answer(*client);
    while (got.compare(0, 1, "{") == 0) got = websocket_answer(*client);
    EXPECT_EQ(c.answer, got);
    client->send(websocket_close(1000));
    EXPECT_EQ("", client->rest());
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, host_patience / 2)
      << "it is the server that closes";
  const auto split = websocket();  // within a character
  split->send(websocket_frame(0x01, request("echo", euro, "1").substr(0, 43)) +
              websocket_frame(0x80, request("echo", euro, "1").substr(43)));
  EXPECT_EQ(result("1", euro), websocket_answer(*split));
  EXPECT_EQ("89 ", websocket_answer(*split)) << "asked whether it is still there";
  split->send(websocket_frame(0x8a, ""));
  EXPECT_EQ("89 ", websocket_answer(*split));
  EXPECT_EQ("", split->rest()) << "it did not answer";
  const std::pair<const char*, int> refused[] = {{"Sec-WebSocket-Version: 8", 426},
                                                 {"Sec-WebSocket-Version: 13\r\nX", 400}};
  for (const auto& [version, status] : refused) {
    std::string text = websocket_handshake();
    text.replace(text.find("Sec-WebSocket-Version: 13"), 25, version);
    EXPECT_EQ(status, answer(text).status) << version;
  }
}

TEST_F(HttpFrontTest, TlsServesThoseWhoShowWhatIsAskedFor) {
  const Certificates certificates;
  for (const char* name : {"server", "client"}) certificates.sign(name, "IP:127.0.0.1");
  const std::string server = certificates.file("server");
  start({"--listen", "https://127.0.0.1:0", "--tls-cert", server, "--tls-key", server, "--listen",
         "https://0.0.0.0:0", "--tls-cert", server, "--tls-key", server, "--tls-client-ca",
         certificates.file("ca")});
  const auto called = [&](Wire_Client& client) {
    return client.connected() && client.send(http_post(sum)) ? client.bytes(12) : "";
  };
  Wire_Client any(url()), known(host_->urls()[1], certificates.file("client"));
  Wire_Client unknown(host_->urls()[1]);
  EXPECT_EQ("HTTP/1.1 200", called(any));
  EXPECT_EQ("HTTP/1.1 200", called(known));
  EXPECT_EQ("", called(unknown));
  Wire_Client plain("http" + url().substr(5));
  plain.send(http_post(sum));
  EXPECT_THAT(plain.rest(), Not(HasSubstr("200")));
}

TEST(HttpFrontStartTest, AListenerForAllNeedsTlsOrConsent) {
  const struct {
    std::vector<std::string> options;
    std::string reason;
  } cases[] = {
      {{"--listen", "http://0.0.0.0:0"}, "it is not on the loopback interface"},
      {{"--listen", "https://127.0.0.1:0"}, "it needs --tls-cert and --tls-key"},
      {{"--admin", "http://0.0.0.0:0"}, "it must be on the loopback interface"},
      {{"--listen", "tcps://127.0.0.1:0", "--tls-cert", "/none", "--tls-key", "/none"}, "/none: "},
  };
  for (const auto& c : cases) {
    Host_Process host(c.options);
    EXPECT_NE(0, host.wait());
    EXPECT_THAT(host.log(), HasSubstr(c.reason));
  }
  Host_Process host(Words{"--listen", "http://0.0.0.0:0", "--allow-plain"});
  ASSERT_TRUE(host.ready());
  host.stop();
}

}  // namespace
