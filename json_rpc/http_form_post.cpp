#include "json_rpc/http_form_post.h"

#include <cerrno>
#include <iterator>
#include <new>

#include "json_rpc/json_http_exchange.h"
#include "vexa/http_query_string_builder_t.h"
#include "vexa/http_session_url.h"
#include "vexa/log.h"

namespace {

std::string encode(const std::map<std::string, std::string>& form) {
  std::string body;
  HTTP_Query_String_Builder_T builder(std::back_inserter(body), false);
  builder(form);
  return body;
}

/// Sends the form and receives the head of the reply; null after an error line.
HTTP_Connection_var send(HTTP_Session& sess, const HTTP_Request& req, const std::string& body,
                         HTTP_Response& resp, const HTTP_Session_URL& url) {
  const HTTP_Connection_var conn = sess.send_request(req);
  if (conn.get() == nullptr) {
    VEXA_ERROR("Failed to send request to '%s'.\n", url.c_str());
    return conn;
  }
  if (conn->send(body.data(), body.size()) != static_cast<ssize_t>(body.size()) ||
      conn->end() == -1) {
    VEXA_ERROR("Failed to send data to '%s'.\n", url.c_str());
    return HTTP_Connection_var();
  }
  resp.reset();
  if (conn->recv_header(resp) != -1) return conn;
  VEXA_ERROR("Failed to receive response from '%s'.\n", url.c_str());
  return HTTP_Connection_var();
}

bool read(HTTP_Connection& conn, const HTTP_Session_URL& url, json_spirit::Value& result) {
  switch (json_http_read_body(conn, result)) {
    case JSON_HTTP_Body::READ:
      return true;
    case JSON_HTTP_Body::NOT_OPENED:
      VEXA_ERROR("Failed to open JSON %s reader.\n", url.c_str());
      return false;
    case JSON_HTTP_Body::NOT_RECEIVED:
      VEXA_ERROR("Failed to read data from '%s', error=%d.\n", url.c_str(), conn.error());
      return false;
    case JSON_HTTP_Body::NOT_PARSED:
      VEXA_ERROR("Failed to parse JSON response from '%s'.\n", url.c_str());
      return false;
    default:
      VEXA_ERROR("Failed to finish parsing JSON response from '%s'.\n", url.c_str());
      return false;
  }
}

bool post(HTTP_Session_var sess, HTTP_Request& req, const std::map<std::string, std::string>& form,
          HTTP_Response& resp, json_spirit::Value* result) {
  const std::string body = encode(form);
  req.content_type("application/x-www-form-urlencoded");
  req.chunked_transfer_encoding(false);
  req.content_length(body.size());
  if (result != nullptr) req.headers().put(HTTP_HEAD_ACCEPT, "application/json", true);
  const HTTP_Session_URL url(sess, req);
  const HTTP_Connection_var conn = send(*sess, req, body, resp, url);
  if (conn.get() == nullptr) return false;
  if (result == nullptr) return true;
  if (resp.has_body()) return read(*conn, url, *result);
  VEXA_ERROR("Response from '%s' has no body.\n", url.c_str());
  return false;
}

}  // namespace

bool http_post_urlencoded_form(const HTTP_Session_var& sess, HTTP_Request& req,
                               const std::map<std::string, std::string>& form, HTTP_Response& resp,
                               json_spirit::Value* result) {
  VEXA_CHECK(sess.get() != nullptr, "sess is NULL", false);
  try {
    return post(sess, req, form, resp, result);
  } catch (const std::bad_alloc&) {
    VEXA_ERROR("Failed to post a form, there is no memory\n");
    errno = ENOMEM;
    return false;
  }
}
