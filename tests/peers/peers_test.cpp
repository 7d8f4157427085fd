// The HTTP clients against servers of other makers; tests/peers/run starts them.

#include <ace/SSL/SSL_Context.h>
#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "json_rpc/json_restful_client.h"
#include "json_rpc/json_rpc_http_session.h"
#include "json_rpc/json_rpc_session.h"
#include "json_rpc/json_rpc_utils.h"
#include "tests/support/log_capture.h"
#include "vexa/http_session_factory.h"
#include "vexa/yajl_gen.h"

namespace {

typedef json_spirit::Value Value;

std::string setting(const char* name) {
  const char* const value = std::getenv(name);
  if (value == nullptr) {
    ADD_FAILURE() << name << " is not set: start this with tests/peers/run";
    return std::string();
  }
  return value;
}

unsigned short port(const char* name) {
  return static_cast<unsigned short>(std::atoi(setting(name).c_str()));
}

/// Over TLS where somebody is to be trusted.
HTTP_Session_var session_to(const char* name, ACE_SSL_Context* trust = nullptr) {
  return HTTP_Session_Factory::create("127.0.0.1", port(name), trust != nullptr, nullptr, 3, trust,
                                      false, 10, 10, 10, 0);
}

std::string file(const std::string& name) {
  std::ifstream in(setting("PEER_FILES") + "/" + name);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string text_of(const Value& value) {
  return value.type() == json_spirit::str_type ? value.get_str() : std::string();
}

Value member(const Value& value, const char* name) {
  if (value.type() != json_spirit::obj_type) return Value();
  const auto it = value.get_obj().find(name);
  return it == value.get_obj().end() ? Value() : it->second;
}

std::size_t descriptors() {
  std::size_t count = 0;
  DIR* const directory = ::opendir("/proc/self/fd");
  while (::readdir(directory) != nullptr) ++count;
  ::closedir(directory);
  return count;
}

/// Descriptors are as many afterwards as before.
class PeersTest : public ::testing::Test {
protected:
  PeersTest() : before_(descriptors()) {}
  ~PeersTest() override { EXPECT_EQ(before_, descriptors()); }

  const std::size_t before_;
  Log_Capture log_;
};

/// Writes an array of `n` texts of 1 KB.
class Texts final : public JSON_Generator {
public:
  explicit Texts(int n) : n_(n) {}
  bool generate_i(YAJL_Gen& gen) override {
    const std::string text(1022, 'z');
    gen.array_open();
    for (int i = 0; i < n_; ++i) gen << text;
    return gen.array_close();
  }

private:
  const int n_;
};

TEST_F(PeersTest, NginxServesStaticJsonOverKeptConnections) {
  ACE_SSL_Context trust;
  trust.set_mode(ACE_SSL_Context::SSLv23_client);
  ASSERT_EQ(0, trust.load_trusted_ca(setting("PEER_CA").c_str(), nullptr, false));
  trust.set_verify_peer();
  const std::string large = file("large.json");
  for (const char* server : {"PEER_HTTP", "PEER_TLS"}) {
    JSON_RESTful_Client client(
        session_to(server, server == std::string("PEER_TLS") ? &trust : nullptr), true);
    for (int i = 0; i < 10; ++i) {  // three requests a connection
      Value value;
      EXPECT_TRUE(client.get("/small.json", &value));
      EXPECT_EQ(186u, text_of(member(value, "small")).size());
      EXPECT_TRUE(client.get("/large.json", &value));
      EXPECT_EQ(large.size() - 2, text_of(value).size());
      EXPECT_TRUE(client.get("/short/small.json", &value)) << "closes after each";
    }
  }
}

TEST_F(PeersTest, NginxsRefusalsAreReported) {
  const struct {
    const char* uri;
    int status;
    Value error;
  } cases[] = {{"/old", 301, Value()},
               {"/none", 404, Value("missing")},
               {"/empty", 204, Value()},
               {"/small.txt", 200, Value()}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    JSON_RESTful_Client client(session_to("PEER_HTTP"), true);
    client.retries(0);
    Value value;
    HTTP_Response response;
    EXPECT_EQ(c.status == 204, client.get(c.uri, response, &value));
    EXPECT_EQ(c.status, response.status());
    EXPECT_EQ(c.error, member(value, "error"));
  }
  EXPECT_EQ(2u, log_.count("must be application/json")) << "the redirect's page, and the text";
  // It answers while the body still comes, and closes.
  JSON_RESTful_Client client(session_to("PEER_HTTP"), true);
  client.skip_content_type(true);
  client.retries(0);
  Texts body(20'000);
  HTTP_Request request(HTTP_METHOD_POST, "/bin/post");
  EXPECT_FALSE(client.post(request, body, nullptr));
  EXPECT_EQ(1u, log_.count("status=413"));
}

TEST_F(PeersTest, JaysonIsCalled) {
  for (const char* uri : {"/", "/rpc/"}) {  // itself, and through nginx
    SCOPED_TRACE(uri);
    const HTTP_Session_var session = session_to(*(uri + 1) == '\0' ? "PEER_RPC" : "PEER_HTTP");
    JSON_RPC_HTTP_Session calls(session, uri, 0, -1);
    Value value;
    EXPECT_TRUE(calls.request("sum", Value(json_spirit::Array{1, 2}), &value));
    EXPECT_EQ(Value(3), member(value, "result"));
    EXPECT_TRUE(calls.request("none", &value));
    EXPECT_EQ(Value(-32601), member(member(value, "error"), "code"));
    EXPECT_TRUE(calls.request("text", Value(json_spirit::Array{1'000'000}), &value));
    EXPECT_EQ(1'000'000u, text_of(member(value, "result")).size());

    const JSON_RPC_Object_var call =
        JSON_RPC_Session::make_rpc_request("fail", Value(json_spirit::Array()));
    JSON_RPC_Id_Generator::gen(*call);
    const JSON_RPC_Object_var answer = calls.request(call);
    ASSERT_NE(nullptr, answer.get());
    EXPECT_EQ(call->id, answer->id);
    ASSERT_EQ(JSON_RPC_Object::TYPE_RESPONSE_ERROR, answer->type);
    EXPECT_EQ(7, static_cast<const JSON_RPC_Response_Error&>(*answer).code);
    call->type = JSON_RPC_Object::TYPE_NOTIFY;
    EXPECT_FALSE(calls.notify(call)) << "jayson answers 204, and only 200 counts";
  }
}

TEST_F(PeersTest, HttpbinSeesWhatWasSent) {
  for (const bool streaming : {true, false}) {
    SCOPED_TRACE(streaming);
    JSON_RESTful_Client client(session_to("PEER_BIN"), true);
    client.streaming(streaming);
    EXPECT_TRUE(client.set_header("X-Test", "yes"));
    const Value body(json_spirit::Array{1, "\xC3\xA9\"", 2.5});
    HTTP_Response response;
    Value value;
    EXPECT_TRUE(client.get("/get?a=b", &value));
    EXPECT_EQ(Value("yes"), member(member(value, "headers"), "X-Test"));
    EXPECT_TRUE(client.post("/post", &body, &value));
    EXPECT_EQ(body, member(value, "json"));
    EXPECT_TRUE(client.put("/put", &body, &value));
    EXPECT_EQ(body, member(value, "json"));
    HTTP_Request request(HTTP_METHOD_GET, "/delete");
    EXPECT_TRUE(client.del(request, response, &value));
    Texts generated(300);
    EXPECT_TRUE(client.post("/post", generated, &value));
    EXPECT_EQ(300u, member(value, "json").get_array().size());
    EXPECT_FALSE(client.get("/status/503", response, nullptr));
    EXPECT_EQ(503, response.status());
    EXPECT_FALSE(client.get("/redirect-to?url=/get", response, nullptr));
    EXPECT_EQ(302, response.status());
    EXPECT_FALSE(client.get("/cookies/set?k=v", response, nullptr));
    EXPECT_TRUE(client.get("/cookies", &value));
    EXPECT_EQ(Value("v"), member(member(value, "cookies"), "k"));
    EXPECT_TRUE(client.clear_cookie() && client.get("/cookies", &value));
    EXPECT_EQ(Value(), member(member(value, "cookies"), "k"));
  }
  HTTP_Request request(HTTP_METHOD_POST, "/post");
  HTTP_Response response;
  Value value;
  EXPECT_TRUE(http_post_urlencoded_form(session_to("PEER_BIN"), request, {{"a b", "x/y&="}},
                                        response, &value));
  EXPECT_EQ(Value("x/y&="), member(member(value, "form"), "a b"));
}

}  // namespace
