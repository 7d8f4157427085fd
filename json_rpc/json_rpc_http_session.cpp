#include "json_rpc/json_rpc_http_session.h"

#include <cerrno>
#include <new>

#include "json_rpc/json_http_session_inl.h"
#include "json_rpc/json_rpc_reader.h"
#include "json_rpc/json_rpc_writer.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace {

constexpr int status_ok = 200;

/// What `operation` gives, or `failed` when it runs out of memory.
template <typename Result, typename Operation>
Result guarded(const Result& failed, Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    VEXA_ERROR("Failed to exchange JSON-RPC over HTTP, there is no memory\n");
    errno = ENOMEM;
    return failed;
  }
}

/// Sends a request with its body; the exchange, or null.
template <typename Body>
HTTP_Connection_var json_http_do(const HTTP_Session_var& session, HTTP_Request& request,
                                 Body* body) {
  if (body != nullptr) request.content_type("application/json");
  HTTP_Connection_var conn = session->send_request(request);
  if (conn.get() != nullptr && body != nullptr &&
      json_http_send_body(session, request, *body, *conn) != JSON_HTTP_OK) {
    conn.reset();
  }
  return conn;
}

template <typename Body>
HTTP_Connection_var json_http_do_with_retries(const HTTP_Session_var& session,
                                              HTTP_Request& request, Body* body, int retries,
                                              int retry_timeout) {
  HTTP_Connection_var conn;
  if (session.get() == nullptr) return conn;
  json_http_retry(retries, retry_timeout, [&] {
    conn = json_http_do(session, request, body);
    return conn.get() != nullptr ? JSON_HTTP_OK : JSON_HTTP_TRANSPORT;
  });
  return conn;
}

/// The head of a response to a message.
bool receive_head(HTTP_Connection& conn, HTTP_Response& response) {
  if (conn.recv_header(response) != -1) return true;
  errno = conn.error();
  VEXA_ERROR("Failed to receive HTTP response, errno=%d, %m\n", conn.error());
  return false;
}

/// Whether a response to a message may be read.
bool acceptable(const HTTP_Response& response) {
  if (response.status() != status_ok) {
    VEXA_ERROR("JSON_RPC response status (%d) is not OK.\n", response.status());
    return false;
  }
  if (!response.has_body()) {
    VEXA_ERROR("No body data for JSON-RPC request.\n");
    return false;
  }
  const char* const type = response.content_type();
  if (!http_header_value_match(type, "application/json", ';')) {
    VEXA_ERROR("Invalid Content-Type (%s) of JSON-RPC response.\n", type == nullptr ? "" : type);
    return false;
  }
  return true;
}

/// Feeds the body of a response to the reader, as it comes.
bool read_message(HTTP_Connection& conn, JSON_RPC_Reader& reader) {
  char data[16 * 1024];
  while (conn.state() != HTTP_SOCK_STATE_CONTENT_RECEIVED &&
         conn.state() != HTTP_SOCK_STATE_CLOSED) {
    const ssize_t got = conn.recv(data, sizeof data);
    if (got == -1) {
      errno = conn.error();
      VEXA_ERROR("Failed to read JSON-RPC response data errno=%d, %m.\n", conn.error());
      return false;
    }
    if (got > 0 && !reader.read(data, static_cast<std::size_t>(got))) {
      VEXA_ERROR("Failed to parse JSON-RPC response.\n");
      return false;
    }
  }
  if (reader.read(nullptr, 0) && reader.message() != nullptr) return true;
  VEXA_ERROR("Failed to finish JSON-RPC response.\n");
  return false;
}

}  // namespace

JSON_RPC_HTTP_Session::JSON_RPC_HTTP_Session(const HTTP_Session_var& sess, const char* uri,
                                             int retries, int retry_timeout)
    : sess_(sess),
      req_(HTTP_METHOD_GET, "/"),
      uri_(uri == nullptr ? "" : uri),
      retries_(retries),
      retry_timeout_(retry_timeout) {
  req_.method(HTTP_METHOD_POST);
  req_.uri(uri_);
}

void JSON_RPC_HTTP_Session::reset(const HTTP_Session_var& sess, const char* uri) {
  sess_ = sess;
  uri_ = uri == nullptr ? "" : uri;
}

HTTP_Connection_var JSON_RPC_HTTP_Session::send_request(const JSON_RPC_Object_var& obj) {
  const JSON_RPC_Object* const message = obj.get();
  const bool call = message != nullptr && (message->type == JSON_RPC_Object::TYPE_NOTIFY ||
                                           message->type == JSON_RPC_Object::TYPE_REQUEST);
  if (!call) {
    VEXA_LOG(LM_EMERGENCY, -1,
             "Unexpected error in %N:%l, obj is neither JSON-RPC request nor notify!\n");
    return HTTP_Connection_var();
  }
  if (sess_.get() == nullptr) return HTTP_Connection_var();
  return guarded(HTTP_Connection_var(), [&] {
    HTTP_Request request(HTTP_METHOD_POST, uri_.c_str());
    request.keep_alive(true);
    request.content_type("application/json");
    request.chunked_transfer_encoding(true);
    const HTTP_Connection_var conn = sess_->send_request(request);
    if (conn.get() == nullptr) {
      VEXA_ERROR("Failed to send JSON-RPC request to HTTP connection %s.\n",
                 HTTP_Session_URL(sess_, request).c_str());
      return HTTP_Connection_var();
    }
    YAJL_HTTP_SOCK_Stream_T_Printer<HTTP_Connection> printer(conn.get());
    if (!JSON_RPC_Writer().write(*message, printer)) {
      VEXA_ERROR("Failed to serialize JSON-RPC body to HTTP connection %s.\n",
                 HTTP_Session_URL(sess_, request).c_str());
      return HTTP_Connection_var();
    }
    if (!printer || conn->end() == -1) {
      errno = conn->error();
      VEXA_ERROR("Failed to POST JSON-RPC body to %s, errno=%d, %m\n",
                 HTTP_Session_URL(sess_, request).c_str(), conn->error());
      return HTTP_Connection_var();
    }
    return conn;
  });
}

JSON_RPC_Object_var JSON_RPC_HTTP_Session::receive_response(const HTTP_Connection_var& conn) {
  if (conn.get() == nullptr) return JSON_RPC_Object_var();
  return guarded(JSON_RPC_Object_var(), [&] {
    HTTP_Response response;
    if (!receive_head(*conn, response) || !acceptable(response)) return JSON_RPC_Object_var();
    JSON_RPC_Reader reader;
    if (!reader.open()) {
      VEXA_ERROR("Failed to open JSON-RPC reader.\n");
      return JSON_RPC_Object_var();
    }
    return read_message(*conn, reader) ? *reader.message() : JSON_RPC_Object_var();
  });
}

JSON_RPC_Object_var JSON_RPC_HTTP_Session::request(const JSON_RPC_Object_var& obj) {
  return receive_response(send_request(obj));
}

bool JSON_RPC_HTTP_Session::notify(const JSON_RPC_Object_var& obj) {
  const HTTP_Connection_var conn = send_request(obj);
  if (conn.get() == nullptr) return false;
  HTTP_Response response;
  return receive_head(*conn, response) && response.status() == status_ok;
}

json_spirit::Object JSON_RPC_HTTP_Session::make_json_rpc_body(const char* method,
                                                              const json_spirit::Value* params) {
  json_spirit::Object body;
  body["id"] = JSON_RPC_Id_Generator::get();
  body["jsonrpc"] = "2.0";
  body["method"] = method;
  if (params != nullptr) body["params"] = *params;
  return body;
}

bool JSON_RPC_HTTP_Session::request(const char* method, json_spirit::Value* result) {
  return call(method, nullptr, result);
}

bool JSON_RPC_HTTP_Session::request(const char* method, const json_spirit::Value& params,
                                    json_spirit::Value* result) {
  return call(method, &params, result);
}

bool JSON_RPC_HTTP_Session::call(const char* method, const json_spirit::Value* params,
                                 json_spirit::Value* result) {
  VEXA_CHECK(method != nullptr && *method != '\0', "method is NULL or \"\"", false);
  return guarded(false, [&] {
    const json_spirit::Value body(make_json_rpc_body(method, params));
    const HTTP_Connection_var conn =
        json_http_do_with_retries(sess_, req_, &body, retries_, retry_timeout_);
    HTTP_Response response;
    return parse_body(conn, req_, response, result) && response.status() == status_ok;
  });
}

bool JSON_RPC_HTTP_Session::request(HTTP_Request& request, const json_spirit::Value* body,
                                    HTTP_Response& response, json_spirit::Value* result) {
  const HTTP_Connection_var conn =
      json_http_do_with_retries(sess_, request, body, retries_, retry_timeout_);
  return parse_body(conn, request, response, result);
}

bool JSON_RPC_HTTP_Session::request(HTTP_Request& request, JSON_Generator& body,
                                    HTTP_Response& response, json_spirit::Value* result) {
  const HTTP_Connection_var conn =
      json_http_do_with_retries(sess_, request, &body, retries_, retry_timeout_);
  return parse_body(conn, request, response, result);
}

bool JSON_RPC_HTTP_Session::parse_body(const HTTP_Connection_var& conn, const HTTP_Request& request,
                                       HTTP_Response& response, json_spirit::Value* result) {
  if (conn.get() == nullptr) return false;
  if (json_http_receive_header(sess_, request, response, *conn) != JSON_HTTP_OK) return false;
  return result == nullptr || parse_body_i(conn, request, response, *result);
}

bool JSON_RPC_HTTP_Session::parse_body_i(const HTTP_Connection_var& conn,
                                         const HTTP_Request& request, HTTP_Response& response,
                                         json_spirit::Value& result) {
  if (conn.get() == nullptr) return false;
  return guarded(false, [&] {
    const HTTP_Session_URL url(sess_, request);
    if (!response.has_body()) {
      VEXA_ERROR("No body data of JSON %s.\n", url.c_str());
      return false;
    }
    if (!json_http_check_type(sess_, request, response)) return false;
    const JSON_HTTP_Body read = json_http_read_body(*conn, result);
    if (read == JSON_HTTP_Body::NOT_FINISHED) {
      VEXA_ERROR("Failed to finish parsing JOSN %s response.\n", url.c_str());
      return false;
    }
    return read == JSON_HTTP_Body::READ || json_http_log_body(read, -1, url, *conn);
  });
}
