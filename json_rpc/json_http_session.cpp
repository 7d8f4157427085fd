#include "json_rpc/json_http_session.h"

#include <cerrno>
#include <new>

#include "json_rpc/json_http_session_inl.h"

bool json_http_check_type(const HTTP_Session_var& session, const HTTP_Request& request,
                          const HTTP_Response& response) {
  const char* const type = response.content_type();
  if (http_header_value_match(type, "application/json", ';')) return true;
  VEXA_LOG(LM_ERROR, JSON_HTTP_CONTENT,
           "HTTP response Content-Type (%s) of JSON %s must be application/json\n",
           type == nullptr ? "" : type, HTTP_Session_URL(session, request).c_str());
  return false;
}

int json_http_send_failed(const HTTP_Session_var& session, const HTTP_Request& request,
                          HTTP_Connection& connection) {
  errno = connection.error();
  VEXA_LOG(LM_ERROR, JSON_HTTP_TRANSPORT, "Failed to POST/PUT data to %s, errno=%d, %m\n",
           HTTP_Session_URL(session, request).c_str(), connection.error());
  return JSON_HTTP_TRANSPORT;
}

int json_http_receive_header(const HTTP_Session_var& session, const HTTP_Request& request,
                             HTTP_Response& response, HTTP_Connection& connection) {
  response.reset();
  if (connection.recv_header(response) != -1) return JSON_HTTP_OK;
  errno = connection.error();
  VEXA_LOG(LM_ERROR, JSON_HTTP_TRANSPORT, "Failed to receive response from %s, errno=%d, %m\n",
           HTTP_Session_URL(session, request).c_str(), connection.error());
  return JSON_HTTP_TRANSPORT;
}

bool json_http_log_body(JSON_HTTP_Body read, int code, const HTTP_Session_URL& url,
                        const HTTP_Connection& connection) {
  if (read == JSON_HTTP_Body::NOT_OPENED) {
    VEXA_LOG(LM_ERROR, code, "Failed to open JSON %s reader.\n", url.c_str());
  } else if (read == JSON_HTTP_Body::NOT_PARSED) {
    VEXA_LOG(LM_ERROR, code, "Failed to parse JSON %s response.\n", url.c_str());
  } else if (read == JSON_HTTP_Body::NOT_RECEIVED) {
    errno = connection.error();
    VEXA_LOG(LM_ERROR, code, "Failed to GET data from JSON %s, errno=%d, %m\n", url.c_str(),
             connection.error());
  }
  return false;
}

int json_http_receive_value(const HTTP_Session_var& session, const HTTP_Request& request,
                            const HTTP_Response& response, HTTP_Connection& connection,
                            json_spirit::Value* result, bool skip_content_type) {
  if (!response.has_body()) {
    *result = json_spirit::Value();
    return JSON_HTTP_OK;
  }
  if (!skip_content_type && !json_http_check_type(session, request, response)) {
    return JSON_HTTP_CONTENT;
  }
  const JSON_HTTP_Body read = json_http_read_body(connection, *result);
  if (read == JSON_HTTP_Body::READ) return JSON_HTTP_OK;
  const HTTP_Session_URL url(session, request);
  const int code = read == JSON_HTTP_Body::NOT_RECEIVED ? JSON_HTTP_TRANSPORT : JSON_HTTP_CONTENT;
  if (read == JSON_HTTP_Body::NOT_FINISHED) {
    VEXA_LOG(LM_ERROR, JSON_HTTP_CONTENT, "Failed to finish parsing JSON %s response.\n",
             url.c_str());
  } else {
    json_http_log_body(read, code, url, connection);
  }
  return code;
}

int json_http_body_do(const HTTP_Session_var& session, const HTTP_Request& request,
                      const HTTP_Response& response, const HTTP_Connection_var& connection,
                      IO_Base& out, bool skip_content_type) {
  if (!response.has_body()) return JSON_HTTP_OK;
  if (!skip_content_type && !json_http_check_type(session, request, response)) {
    return JSON_HTTP_CONTENT;
  }
  char data[16 * 1024];
  while (connection->state() != HTTP_SOCK_STATE_CONTENT_RECEIVED &&
         connection->state() != HTTP_SOCK_STATE_CLOSED) {
    const ssize_t got = connection->recv(data, sizeof data);
    if (got == -1) {
      json_http_log_body(JSON_HTTP_Body::NOT_RECEIVED, JSON_HTTP_CONTENT,
                         HTTP_Session_URL(session, request), *connection);
      return JSON_HTTP_CONTENT;
    }
    if (got > 0 && out.write(data, static_cast<std::size_t>(got)) == -1) {
      VEXA_LOG(LM_ERROR, JSON_HTTP_CONTENT, "Failed to write data of JSON %s, errno=%d, %m\n",
               HTTP_Session_URL(session, request).c_str(), errno);
      return JSON_HTTP_CONTENT;
    }
  }
  return JSON_HTTP_OK;
}

JSON_HTTP_Session::JSON_HTTP_Session(const HTTP_Session_var& session, int retries,
                                     int retry_timeout)
    : session_(session), retries_(retries), retry_timeout_(retry_timeout) {}

bool JSON_HTTP_Session::clear_cookie() {
  VEXA_CHECK(session_.get() != nullptr, "session_ is NULL", false);
  session_->clear_cookie();
  return true;
}

template <typename Body>
bool JSON_HTTP_Session::exchange(int method, HTTP_Request& request, Body* body,
                                 HTTP_Response& response, json_spirit::Value* result) {
  VEXA_CHECK(session_.get() != nullptr, "session_ is NULL", false);
  request.method(method);
  return json_http_do_with_retries(session_, request, body, response, result, skip_content_type_,
                                   streaming_, retries_, retry_timeout_);
}

bool JSON_HTTP_Session::get(HTTP_Request& request, HTTP_Response& response,
                            json_spirit::Value* result) {
  const json_spirit::Value* const none = nullptr;
  return exchange(HTTP_METHOD_GET, request, none, response, result);
}

bool JSON_HTTP_Session::post(HTTP_Request& request, const json_spirit::Value* body,
                             HTTP_Response& response, json_spirit::Value* result) {
  return exchange(HTTP_METHOD_POST, request, body, response, result);
}

bool JSON_HTTP_Session::post(HTTP_Request& request, JSON_Generator& body, HTTP_Response& response,
                             json_spirit::Value* result) {
  return exchange(HTTP_METHOD_POST, request, &body, response, result);
}

bool JSON_HTTP_Session::put(HTTP_Request& request, const json_spirit::Value* body,
                            HTTP_Response& response, json_spirit::Value* result) {
  return exchange(HTTP_METHOD_PUT, request, body, response, result);
}

bool JSON_HTTP_Session::put(HTTP_Request& request, JSON_Generator& body, HTTP_Response& response,
                            json_spirit::Value* result) {
  return exchange(HTTP_METHOD_PUT, request, &body, response, result);
}

bool JSON_HTTP_Session::delete_(HTTP_Request& request, HTTP_Response& response,
                                json_spirit::Value* result) {
  const json_spirit::Value* const none = nullptr;
  return exchange(HTTP_METHOD_DELETE, request, none, response, result);
}

HTTP_Connection_var JSON_HTTP_Session::get(HTTP_Request& request, HTTP_Response& response) {
  VEXA_CHECK(session_.get() != nullptr, "session_ is NULL", HTTP_Connection_var());
  request.method(HTTP_METHOD_GET);
  HTTP_Connection_var conn;
  const bool received = json_http_do_with_retries(session_, request, nullptr, response, retries_,
                                                  retry_timeout_, conn);
  return received ? conn : HTTP_Connection_var();
}

bool JSON_HTTP_Session::get(HTTP_Request& request, HTTP_Response& response,
                            const HTTP_Connection_var& connection, IO_Base& out) {
  VEXA_CHECK(connection.get() != nullptr, "connection is NULL", false);
  try {
    return json_http_body_do(session_, request, response, connection, out, skip_content_type_) ==
           JSON_HTTP_OK;
  } catch (const std::bad_alloc&) {
    VEXA_LOG(LM_ERROR, JSON_HTTP_CONTENT, "Failed to copy a JSON body, there is no memory\n");
    errno = ENOMEM;
    return false;
  }
}
