// JSON, JSON-RPC, REST and forms over HTTP, against a server that does what a script says.

#include "json_rpc/json_http_session.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "json_rpc/json_http_session_inl.h"
#include "json_rpc/json_restful_client.h"
#include "json_rpc/json_rpc_http_session.h"
#include "json_rpc/json_rpc_session.h"
#include "json_rpc/json_rpc_utils.h"
#include "tests/support/http_exchange.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_http_server.h"
#include "vexa/http_query_string_builder_t.h"
#include "vexa/yajl_gen.h"

namespace {

typedef Scripted_Reply Reply;
typedef json_spirit::Value Value;

const std::string json_type = "Application/JSON ; charset=utf-8";

Reply reply(int status, const std::string& body, const std::string& type = json_type) {
  return {"HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Type: " + type +
          "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body};
}

/// A port that nobody listens on.
unsigned short closed_port() { return Scripted_HTTP_Server({}).port(); }

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// {key: value}
Value member(const std::string& key, const Value& value) {
  json_spirit::Object object;
  object[key] = value;
  return Value(object);
}

/// Writes [0], and fails behind it when told.
class Body final : public JSON_Generator {
public:
  explicit Body(bool good) : good_(good) {}
  bool generate_i(YAJL_Gen& gen) override {
    gen.array_open();
    gen.integer(0);
    return gen.array_close() && good_;
  }

private:
  const bool good_;
};

/// Writes enough for the head to leave, and a little more after a while.
class Slow final : public JSON_Generator {
public:
  bool generate_i(YAJL_Gen& gen) override {
    gen.array_open();
    const std::string text(20'000, 'x');
    gen.string(text.data(), text.size());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return gen.integer(1) && gen.array_close();
  }
};

class Text_Output final : public IO_Base {
public:
  ssize_t write(const char* data, std::size_t length) override {
    if (text.size() >= limit) return -1;
    text.append(data, length);
    return static_cast<ssize_t>(length);
  }
  std::string text;
  std::size_t limit = std::string::npos;
};

struct JsonHttpTest : ::testing::Test {
  /// The error lines since the last call, with the server's address as S.
  std::string errors(const Scripted_HTTP_Server& server) {
    std::string all;
    for (std::string text : log_.texts(LM_ERROR)) {
      const std::size_t at = text.find(server.url());
      if (at != std::string::npos) text.replace(at, server.url().size(), "S");
      all += text;
    }
    log_.clear();
    return all;
  }

  Log_Capture log_;
  HTTP_Request request{HTTP_METHOD_POST, "/u"};
  HTTP_Response response;
  Value result;
};

TEST_F(JsonHttpTest, RepliesAreTakenOrRefused) {
  const Value one(json_spirit::Array{1});
  json_spirit::Object both = member("b", member("x", 1)).get_obj();
  both["b"].get_obj()["y"] = 1;
  both["a"] = 2;
  const struct {
    Reply reply;
    bool taken;
    Value result;
    std::string errors;
  } cases[] = {
      {reply(404, R"({"no":1})"), true, member("no", 1), ""},
      {{"HTTP/1.1 204 No\r\n\r\n"}, true, Value(), ""},
      {reply(200, "1", "application/jsonp"), false, "before",
       "HTTP response Content-Type (application/jsonp) of JSON S/u must be application/json\n"},
      {{"HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n1"},
       false,
       "before",
       "HTTP response Content-Type () of JSON S/u must be application/json\n"},
      {reply(200, "[1,}"), false, one, "Failed to parse JSON S/u response.\n"},
      {reply(200, "[1"), false, one, "Failed to finish parsing JSON S/u response.\n"},
      {reply(200, R"({"b":{"y":1,"x":1},"a":2,])"), false, both,
       "Failed to parse JSON S/u response.\n"},
      {{"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 9\r\n\r\n[1,",
        Reply::close},
       false,
       one,
       "Failed to GET data from JSON S/u, errno=104, Connection reset by peer\n"},
      {{"", Reply::close},
       false,
       "before",
       "Failed to receive response from S/u, errno=104, Connection reset by peer\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply.text);
    Scripted_HTTP_Server server({{c.reply}});
    JSON_HTTP_Session session(session_to(server.port()), 0, -1);
    result = "before";
    EXPECT_EQ(c.taken, session.get(request, response, result));
    EXPECT_EQ(c.result, result);
    EXPECT_EQ(c.errors, errors(server));
  }
}

TEST_F(JsonHttpTest, OnlyTheTransportIsTriedAgain) {
  {
    Scripted_HTTP_Server server({{{"", Reply::close}}, {reply(200, "[1")}});
    JSON_HTTP_Session session(session_to(server.port()), 5, 300);
    EXPECT_FALSE(session.get(request, response, &result));
    EXPECT_EQ(2, server.connections());
    EXPECT_EQ(1u, log_.count("Retry(1) "));
    EXPECT_EQ(1u, log_.count("Failed to finish parsing JSON"));
  }
  log_.clear();
  JSON_HTTP_Session session(session_to(closed_port()), 1, -1);
  EXPECT_FALSE(session.get(request, response, &result));
  EXPECT_EQ(1u, log_.count("Retry("));
  session.retries(-1);
  session.retry_timeout(0);
  EXPECT_FALSE(session.get(request, response, &result));
  EXPECT_EQ(1u, log_.count("Retry("));
}

TEST_F(JsonHttpTest, ABodyThatCannotBeWrittenIsAFailureOfTheTransport) {
  for (const bool streaming : {true, false}) {
    Scripted_HTTP_Server server({{reply(200, "1")}});
    JSON_HTTP_Session session(session_to(server.port()), 0, -1);
    session.streaming(streaming);
    Body bad(false);
    EXPECT_FALSE(session.post(request, bad, response, &result));
    EXPECT_EQ("Failed to serialize JSON body to HTTP connection S/u.\n", errors(server));
  }
}

TEST_F(JsonHttpTest, TheEndOfABodyThatCannotBeSentIsTriedAgainAndSaysSo) {
  for (const bool message : {true, false}) {
    // The server resets the first connection while the body is generated.
    Scripted_HTTP_Server server({{{"", Reply::reset, 0, true}}, {reply(200, "7")}});
    JSON_RPC_HTTP_Session messages(session_to(server.port()), "/u", 1, -1);
    JSON_HTTP_Session session(session_to(server.port()), 1, -1);
    Slow body;
    EXPECT_TRUE(message ? messages.request(request, body, response, &result)
                        : session.post(request, body, response, &result));
    EXPECT_EQ(Value(7), result);
    EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
    EXPECT_EQ(0u, errors(server).find("Failed to POST/PUT data to S/u, errno="));
  }
}

TEST_F(JsonHttpTest, TheCallerReadsTheBodyHimself) {
  const std::string large = "\"" + std::string(1'000'000, 'x') + "\"";
  Scripted_HTTP_Server server({{reply(200, large)}, {reply(200, large)}, {reply(200, "1", "a/b")}});
  JSON_HTTP_Session session(session_to(server.port()), 0, -1);
  session.streaming(false);
  Text_Output out;
  EXPECT_TRUE(session.get(request, response, session.get(request, response), out));
  EXPECT_EQ(large, out.text);
  Text_Output full;
  full.limit = 1;
  session.reset(session_to(server.port()));
  EXPECT_FALSE(session.get(request, response, session.get(request, response), full));
  EXPECT_EQ(1u, log_.count("Failed to write data of JSON"));
  session.reset(session_to(server.port()));
  const HTTP_Connection_var other = session.get(request, response);
  EXPECT_FALSE(session.get(request, response, other, out));
  session.skip_content_type(true);
  EXPECT_TRUE(session.get(request, response, other, out));
}

TEST_F(JsonHttpTest, MessagesGoAndComeAsObjects) {
  const std::string good = R"({"jsonrpc":"2.0","id":"7","result":[1]})";
  const struct {
    Reply reply;
    bool taken;
    bool notified;
    std::string errors;
  } cases[] = {
      {reply(200, good), true, true, ""},
      {reply(202, good), false, false, "JSON_RPC response status (202) is not OK.\n"},
      {reply(200, ""), false, true, "No body data for JSON-RPC request.\n"},
      {reply(200, good, "text/json;application/json"), false, true,
       "Invalid Content-Type (text/json;application/json) of JSON-RPC response.\n"},
      {reply(200, "{}"), false, true, "Failed to finish JSON-RPC response.\n"},
      {{"", Reply::close},
       false,
       false,
       "Failed to receive HTTP response, errno=104, Connection reset by peer\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply.text);
    Scripted_HTTP_Server server({{c.reply}, {c.reply}});
    JSON_RPC_HTTP_Session session(session_to(server.port()), "/rpc", 0, -1);
    const JSON_RPC_Object_var call = JSON_RPC_Session::make_rpc_request("m", Value(2));
    call->id = "7";
    log_.clear();
    const JSON_RPC_Object_var answer = session.request(call);
    EXPECT_EQ(c.taken, answer.get() != nullptr);
    EXPECT_EQ(c.errors, errors(server));
    EXPECT_TRUE(has(server.request(), R"({"jsonrpc":"2.0","id":"7","method":"m","params":2})"));
    EXPECT_TRUE(has(server.request(), "Connection: Keep-Alive\r\n"));
    session.reset(session_to(server.port()), "/other");
    call->type = JSON_RPC_Object::TYPE_NOTIFY;
    EXPECT_EQ(c.notified, session.notify(call));
    EXPECT_EQ(0u, server.request().find("POST /other "));
    if (c.taken) {
      EXPECT_EQ(Value(json_spirit::Array{1}),
                static_cast<const JSON_RPC_Response&>(*answer).result);
    }
  }
}

TEST_F(JsonHttpTest, MethodsAreCalledByName) {
  const auto call = [&](const Reply& answer, const Value* params) {
    Scripted_HTTP_Server server({{answer}});
    JSON_RPC_HTTP_Session session(session_to(closed_port()), "/rpc", 0, -1);
    session.reset(session_to(server.port()), "/other");
    const bool good = params == nullptr ? session.request("sum", &result)
                                        : session.request("sum", *params, &result);
    EXPECT_EQ(0u, server.request().find("POST /rpc ")) << "by name the URI stays";
    EXPECT_TRUE(has(server.request(), params == nullptr
                                          ? R"(","jsonrpc":"2.0","method":"sum"})"
                                          : R"(","jsonrpc":"2.0","method":"sum","params":[1,2]})"));
    return good ? "good" : errors(server);
  };
  const Value params(json_spirit::Array{1, 2});
  EXPECT_EQ("good", call(reply(200, R"({"result":1})"), &params));
  EXPECT_EQ(member("result", 1), result);
  EXPECT_EQ("", call(reply(500, R"({"error":1})"), nullptr));
  EXPECT_EQ(member("error", 1), result);
  EXPECT_EQ("Failed to finish parsing JOSN S/rpc response.\n", call(reply(200, "[1"), &params));
  EXPECT_EQ("No body data of JSON S/rpc.\n", call(reply(200, ""), &params));
  EXPECT_EQ("HTTP response Content-Type (a/b) of JSON S/rpc must be application/json\n",
            call(reply(200, "1", "a/b"), nullptr));
  Scripted_HTTP_Server server({{reply(500, "[1]")}});
  JSON_RPC_HTTP_Session session(session_to(server.port()), "/rpc", 0, -1);
  request.method(HTTP_METHOD_PUT);
  request.uri("/own");
  Body body(true);
  EXPECT_TRUE(session.request(request, body, response, &result)) << "any status will do";
  EXPECT_EQ(0u, server.request().find("PUT /own "));
  EXPECT_TRUE(has(server.request(), "[0]"));
}

TEST_F(JsonHttpTest, RestJudgesTheStatus) {
  class Client final : public JSON_RESTful_Client {
  public:
    using JSON_RESTful_Client::JSON_RESTful_Client;
    bool fill_request(HTTP_Request& request) const override {
      return request.headers().put("X-Filled", "yes") && fill;
    }
    bool fill = true;
  };
  Scripted_HTTP_Server server({{reply(302, "[1]"),
                                reply(404, "[2]"),
                                {"HTTP/1.1 204 No\r\n\r\n"},
                                reply(302, "[4]"),
                                reply(302, "[5]")}});
  const HTTP_Session_var session = session_to(server.port());
  Client client(session, true);
  EXPECT_FALSE(client.put("/u", nullptr, response, &result));
  EXPECT_EQ(Value(json_spirit::Array{1}), result) << "an error document can be read";
  EXPECT_TRUE(has(server.request(), "X-Filled: yes\r\n"));
  client.logging_error(false);
  EXPECT_FALSE(client.get("/u", response, &result));
  client.logging_error(true);
  client.fill = false;
  EXPECT_FALSE(client.get("/u", response, &result));
  client.fill = true;
  EXPECT_TRUE(client.post("/u", nullptr, response, &result));
  EXPECT_EQ(Value(), result);
  EXPECT_FALSE(client.del(request, response, &result));
  EXPECT_EQ(
      "Failed to PUT data to 'S/u', status=302\nFailed to fill request of GET 'S/u'.\n"
      "Failed to DELETE data to 'S/u', status=302\n",
      errors(server));
  Client lenient(session, false);
  EXPECT_TRUE(lenient.get("/u", response, &result));
  EXPECT_EQ(302, response.status());
}

TEST_F(JsonHttpTest, RestSendsTheVerbAndTheBody) {
  typedef JSON_RESTful_Client Client;
  const Value text("b");
  Body generated(true);
  const auto to = [](int method) { return HTTP_Request(method, "/u"); };
  HTTP_Request get = to(HTTP_METHOD_GET), post = to(HTTP_METHOD_POST), put = to(HTTP_METHOD_PUT),
               del = to(HTTP_METHOD_DELETE);
  const struct {
    std::function<bool(Client&)> call;
    const char* verb;
    const char* body;
  } cases[] = {
      {[&](Client& c) { return c.get("/u", &result); }, "GET", "\r\n\r\n"},
      {[&](Client& c) { return c.get(get, &result); }, "GET", "\r\n\r\n"},
      {[&](Client& c) { return c.post("/u", &text, &result); }, "POST", "\"b\""},
      {[&](Client& c) { return c.post("/u", generated, &result); }, "POST", "[0]"},
      {[&](Client& c) { return c.post(post, &text, &result); }, "POST", "\"b\""},
      {[&](Client& c) { return c.put("/u", &text, &result); }, "PUT", "\"b\""},
      {[&](Client& c) { return c.put(put, &text, &result); }, "PUT", "\"b\""},
      {[&](Client& c) { return c.put(put, generated, &result); }, "PUT", "[0]"},
      {[&](Client& c) { return c.del("/u"); }, "DELETE", "\r\n\r\n"},
      {[&](Client& c) { return c.del(del); }, "DELETE", "\r\n\r\n"},
  };
  Scripted_HTTP_Server server({{std::size(cases), reply(200, "1")}});
  Client client(true);
  EXPECT_FALSE(client.get("/u", &result) || client.set_header("X", "y")) << "no server";
  EXPECT_TRUE(client.reset("127.0.0.1", server.port(), false, 10, 10, 10, 0, 0));
  EXPECT_FALSE(client.get("", &result) || client.del(nullptr));
  EXPECT_TRUE(client.set_header("X", "y"));
  for (const auto& c : cases) {
    result = Value();
    EXPECT_TRUE(c.call(client));
    const std::string sent = server.request();
    SCOPED_TRACE(sent);
    EXPECT_EQ(0u, sent.find(std::string(c.verb) + " /u HTTP/1.1\r\n"));
    EXPECT_TRUE(has(sent, "\r\nX: y\r\n") && has(sent, c.body));
    EXPECT_EQ(Value(c.verb == std::string("DELETE") ? Value() : Value(1)), result);
  }
}

TEST_F(JsonHttpTest, AFormIsSentAndItsReplyRead) {
  std::string query = "/u?x";
  HTTP_Query_String_Builder_T(std::back_inserter(query), true)("k", nullptr)("", "v")(
      "a b", "c d", false, false, "p.")
      .offset(20)
      .desc(true);
  EXPECT_EQ("/u?x&k&p.a b=c d&offset=20&desc=true", query);

  Scripted_HTTP_Server server({{reply(500, "[1]", "text/html"),
                                reply(200, "[1"),
                                {"HTTP/1.1 204 No\r\n\r\n"},
                                {"", Reply::close}}});
  const HTTP_Session_var session = session_to(server.port());
  const std::map<std::string, std::string> form = {{"a b", "x/y"}, {"", "no"}, {"k", ""}};
  EXPECT_TRUE(http_post_urlencoded_form(session, request, form, response, &result));
  EXPECT_EQ(Value(json_spirit::Array{1}), result);
  EXPECT_FALSE(http_post_urlencoded_form(session, request, {}, response, &result));
  EXPECT_TRUE(has(server.request(), "Content-Length: 0\r\n"));
  EXPECT_FALSE(http_post_urlencoded_form(session, request, form, response, &result));
  EXPECT_FALSE(http_post_urlencoded_form(session, request, form, response, nullptr));
  EXPECT_EQ(
      "Failed to finish parsing JSON response from 'S/u'.\n"
      "Response from 'S/u' has no body.\nFailed to receive response from 'S/u'.\n",
      errors(server));
}

}  // namespace
