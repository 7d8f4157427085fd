#include "json_rpc/json_restful_client.h"

#include "vexa/http_session_factory.h"
#include "vexa/http_session_url.h"
#include "vexa/log.h"

namespace {

constexpr int default_timeout = 120;  // seconds, for sending and for receiving

bool is_given(const char* uri) { return uri != nullptr && *uri != '\0'; }

HTTP_Session_var create(const char* host, unsigned short port, bool ssl, int send_timeout,
                        int recv_timeout, int conn_timeout, int flags) {
  return HTTP_Session_Factory::create(host, port, ssl, nullptr, HTTP_SESSION_ANY_FAMILY, nullptr,
                                      false, send_timeout, recv_timeout, conn_timeout, flags);
}

}  // namespace

/// The texts of a verb's failures.
struct JSON_RESTful_Client::Verb {
  const char* not_filled;
  const char* refused;
};

// Kept as they stand: whoever watches the log looks for them.
const JSON_RESTful_Client::Verb JSON_RESTful_Client::get_verb = {
    "Failed to fill request of GET '%C'.\n", "Failed to GET data from '%C', status=%d\n"};
const JSON_RESTful_Client::Verb JSON_RESTful_Client::post_verb = {
    "Failed to fill request of POST '%C'\n", "Failed to POST data to '%C', status=%d\n"};
const JSON_RESTful_Client::Verb JSON_RESTful_Client::put_verb = {
    "Failed to fill request of PUT '%C'\n", "Failed to PUT data to '%C', status=%d\n"};
const JSON_RESTful_Client::Verb JSON_RESTful_Client::delete_verb = {
    "Failed to fill request of DELETE '%C'\n", "Failed to DELETE data to '%C', status=%d\n"};

JSON_RESTful_Client::JSON_RESTful_Client(bool check_res_status)
    : check_res_status_(check_res_status),
      session_(HTTP_Session_var(), JSON_HTTP_Session::DEFAULT_RETRYS,
               JSON_HTTP_Session::DEFAULT_RETRY_TIMEOUT) {}

JSON_RESTful_Client::JSON_RESTful_Client(const HTTP_Session_var& session, bool check_res_status)
    : JSON_RESTful_Client(check_res_status) {
  reset(session);
}

JSON_RESTful_Client::JSON_RESTful_Client(const char* host, unsigned short port, bool ssl,
                                         bool check_res_status)
    : JSON_RESTful_Client(check_res_status) {
  JSON_RESTful_Client::reset(host, port, ssl);
}

JSON_RESTful_Client::~JSON_RESTful_Client() = default;

bool JSON_RESTful_Client::reset(const HTTP_Session_var& session) {
  session_.reset(session);
  return true;
}

bool JSON_RESTful_Client::reset(const char* host, unsigned short port, bool ssl) {
  const HTTP_Session_var session = create(host, port, ssl, default_timeout, default_timeout, 0, 0);
  return session.get() != nullptr && reset(session);
}

bool JSON_RESTful_Client::reset(const char* host, unsigned short port, bool ssl,
                                int sock_send_timeout, int sock_recv_timeout, int sock_conn_timeout,
                                int retries, int flags) {
  const HTTP_Session_var session =
      create(host, port, ssl, sock_send_timeout, sock_recv_timeout, sock_conn_timeout, flags);
  if (session.get() == nullptr) return false;
  session_.reset(session);
  session_.retries(retries);
  return true;
}

bool JSON_RESTful_Client::fill_request(HTTP_Request&) const { return true; }

bool JSON_RESTful_Client::set_header(int type, const char* value) {
  VEXA_CHECK(session_, "session_ is false", false);
  return session_.get()->headers().put(type, value, true);
}

bool JSON_RESTful_Client::set_header(const char* name, const char* value) {
  VEXA_CHECK(session_, "session_ is false", false);
  return session_.get()->headers().put(name, value, true);
}

/// What every verb does around its exchange.
template <typename Exchange>
bool JSON_RESTful_Client::run(const Verb& verb, HTTP_Request& request, HTTP_Response& response,
                              Exchange exchange) {
  VEXA_CHECK(session_, "session_ is false", false);
  if (!fill_request(request)) {
    if (logging_error_) {
      VEXA_ERROR(verb.not_filled, HTTP_Session_URL(session_.get(), request).c_str());
    }
    return false;
  }
  if (!exchange()) return false;
  if (is_status_ok(response.status())) return true;
  if (logging_error_) {
    VEXA_ERROR(verb.refused, HTTP_Session_URL(session_.get(), request).c_str(), response.status());
  }
  return false;
}

bool JSON_RESTful_Client::get(HTTP_Request& request, HTTP_Response& response,
                              json_spirit::Value* result) {
  return run(get_verb, request, response, [&] { return session_.get(request, response, result); });
}

bool JSON_RESTful_Client::post(HTTP_Request& request, JSON_Generator& body,
                               json_spirit::Value* result) {
  HTTP_Response response;
  return run(post_verb, request, response,
             [&] { return session_.post(request, body, response, result); });
}

bool JSON_RESTful_Client::post(HTTP_Request& request, const json_spirit::Value* body,
                               HTTP_Response& response, json_spirit::Value* result) {
  return run(post_verb, request, response,
             [&] { return session_.post(request, body, response, result); });
}

bool JSON_RESTful_Client::put(HTTP_Request& request, const json_spirit::Value* body,
                              HTTP_Response& response, json_spirit::Value* result) {
  return run(put_verb, request, response,
             [&] { return session_.put(request, body, response, result); });
}

bool JSON_RESTful_Client::put(HTTP_Request& request, JSON_Generator& body,
                              json_spirit::Value* result) {
  HTTP_Response response;
  return run(put_verb, request, response,
             [&] { return session_.put(request, body, response, result); });
}

bool JSON_RESTful_Client::del(HTTP_Request& request, HTTP_Response& response) {
  return del(request, response, nullptr);
}

bool JSON_RESTful_Client::del(HTTP_Request& request, HTTP_Response& response,
                              json_spirit::Value* result) {
  return run(delete_verb, request, response,
             [&] { return session_.delete_(request, response, result); });
}

bool JSON_RESTful_Client::get(HTTP_Request& request, json_spirit::Value* result) {
  HTTP_Response response;
  return get(request, response, result);
}

bool JSON_RESTful_Client::post(HTTP_Request& request, const json_spirit::Value* body,
                               json_spirit::Value* result) {
  HTTP_Response response;
  return post(request, body, response, result);
}

bool JSON_RESTful_Client::put(HTTP_Request& request, const json_spirit::Value* body,
                              json_spirit::Value* result) {
  HTTP_Response response;
  return put(request, body, response, result);
}

bool JSON_RESTful_Client::del(HTTP_Request& request) {
  HTTP_Response response;
  return del(request, response);
}

#define CHECK_URI(URI) VEXA_CHECK(is_given(URI), "uri is NULL or \"\"", false)

bool JSON_RESTful_Client::get(const char* uri, HTTP_Response& response,
                              json_spirit::Value* result) {
  CHECK_URI(uri);
  HTTP_Request request(HTTP_METHOD_GET, uri, false);
  return get(request, response, result);
}

bool JSON_RESTful_Client::get(const char* uri, json_spirit::Value* result) {
  HTTP_Response response;
  return get(uri, response, result);
}

bool JSON_RESTful_Client::post(const char* uri, JSON_Generator& body, json_spirit::Value* result) {
  CHECK_URI(uri);
  HTTP_Request request(HTTP_METHOD_POST, uri, false);
  return post(request, body, result);
}

bool JSON_RESTful_Client::post(const char* uri, const json_spirit::Value* body,
                               json_spirit::Value* result) {
  HTTP_Response response;
  return post(uri, body, response, result);
}

bool JSON_RESTful_Client::post(const char* uri, const json_spirit::Value* body,
                               HTTP_Response& response, json_spirit::Value* result) {
  CHECK_URI(uri);
  HTTP_Request request(HTTP_METHOD_POST, uri, false);
  return post(request, body, response, result);
}

bool JSON_RESTful_Client::put(const char* uri, const json_spirit::Value* body,
                              json_spirit::Value* result) {
  HTTP_Response response;
  return put(uri, body, response, result);
}

bool JSON_RESTful_Client::put(const char* uri, const json_spirit::Value* body,
                              HTTP_Response& response, json_spirit::Value* result) {
  CHECK_URI(uri);
  HTTP_Request request(HTTP_METHOD_PUT, uri, false);
  return put(request, body, response, result);
}

bool JSON_RESTful_Client::del(const char* uri, HTTP_Response& response) {
  CHECK_URI(uri);
  HTTP_Request request(HTTP_METHOD_DELETE, uri, false);
  return del(request, response);
}

bool JSON_RESTful_Client::del(const char* uri) {
  HTTP_Response response;
  return del(uri, response);
}
