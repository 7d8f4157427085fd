#pragma once

// The transfers behind JSON_HTTP_Session, for callers that compose exchanges of their own. Body is
// `const json_spirit::Value`, or JSON_Generator; a null body sends none. Codes are those of
// JSON_HTTP_Code; every failure but a missing connection has been logged. A session is not null.

#include <string>

#include "json_rpc/json_http_exchange.h"
#include "json_rpc/yajl_http_sock_stream_t_printer.h"
#include "vexa/http_connection.h"
#include "vexa/http_request.h"
#include "vexa/http_response.h"
#include "vexa/http_session.h"
#include "vexa/http_session_url.h"
#include "vexa/io_base.h"
#include "vexa/json_writer.h"
#include "vexa/log.h"

/// Whether a body of that Content-Type may be read as JSON; logs when it may not.
JSON_RPC_EXPORT bool json_http_check_type(const HTTP_Session_var& session,
                                          const HTTP_Request& request,
                                          const HTTP_Response& response);

/// Ends the request and receives the head of its response.
JSON_RPC_EXPORT int json_http_receive_header(const HTTP_Session_var& session,
                                             const HTTP_Request& request, HTTP_Response& response,
                                             HTTP_Connection& connection);

/// Logs why a body could not be read, `code` as operation status; false. Not for NOT_FINISHED,
/// which clients call differently.
JSON_RPC_EXPORT bool json_http_log_body(JSON_HTTP_Body read, int code, const HTTP_Session_URL& url,
                                        const HTTP_Connection& connection);

/// The body of a response as a JSON value in `*result`: null when there is none.
JSON_RPC_EXPORT int json_http_receive_value(const HTTP_Session_var& session,
                                            const HTTP_Request& request,
                                            const HTTP_Response& response,
                                            HTTP_Connection& connection, json_spirit::Value* result,
                                            bool skip_content_type);

/// The body of a response, as it is, into `out`.
JSON_RPC_EXPORT int json_http_body_do(const HTTP_Session_var& session, const HTTP_Request& request,
                                      const HTTP_Response& response,
                                      const HTTP_Connection_var& connection, IO_Base& out,
                                      bool skip_content_type);

/// A failure to send a body; gives JSON_HTTP_TRANSPORT.
JSON_RPC_EXPORT int json_http_send_failed(const HTTP_Session_var& session,
                                          const HTTP_Request& request, HTTP_Connection& connection);

/// Writes a body as the request's, piece by piece.
template <typename Body>
int json_http_send_body(const HTTP_Session_var& session, const HTTP_Request& request, Body& body,
                        HTTP_Connection& connection) {
  YAJL_HTTP_SOCK_Stream_T_Printer<HTTP_Connection> printer(&connection);
  if (!JSON_Writer::write(body, printer, false)) {
    VEXA_LOG(LM_ERROR, JSON_HTTP_TRANSPORT,
             "Failed to serialize JSON body to HTTP connection %s.\n",
             HTTP_Session_URL(session, request).c_str());
    return JSON_HTTP_TRANSPORT;
  }
  if (printer && connection.end() == 0) return JSON_HTTP_OK;
  return json_http_send_failed(session, request, connection);
}

/// Sends the request, its body in chunks while it is generated, and receives the head of the
/// response. `conn` is the exchange.
template <typename Body>
int json_http_header_do_stream_transfer(const HTTP_Session_var& session, HTTP_Request& request,
                                        Body* body, HTTP_Response& response,
                                        HTTP_Connection_var& conn) {
  if (body != nullptr) request.content_type("application/json");
  if (request.method() == HTTP_METHOD_POST || request.method() == HTTP_METHOD_PUT) {
    request.chunked_transfer_encoding(true);
  }
  conn = session->send_request(request);
  if (conn.get() == nullptr) return JSON_HTTP_TRANSPORT;
  const int sent =
      body == nullptr ? JSON_HTTP_OK : json_http_send_body(session, request, *body, *conn);
  return sent != JSON_HTTP_OK ? sent : json_http_receive_header(session, request, response, *conn);
}

/// The same with a body that is serialised whole before it is sent.
template <typename Body>
int json_http_header_do_buffer_transfer(const HTTP_Session_var& session, HTTP_Request& request,
                                        Body* body, HTTP_Response& response,
                                        HTTP_Connection_var& conn) {
  std::string text;
  request.chunked_transfer_encoding(false);
  if (body != nullptr) {
    YAJL_String_Printer printer(text);
    if (!JSON_Writer::write(*body, printer, false)) {
      VEXA_LOG(LM_ERROR, JSON_HTTP_TRANSPORT,
               "Failed to serialize JSON body to HTTP connection %s.\n",
               HTTP_Session_URL(session, request).c_str());
      return JSON_HTTP_TRANSPORT;
    }
    request.content_length(text.size());
    request.content_type("application/json");
  }
  conn = session->send_request(request);
  if (conn.get() == nullptr) return JSON_HTTP_TRANSPORT;
  if (body != nullptr && (conn->send(text.data(), text.size()) == -1 || conn->end() == -1)) {
    return json_http_send_failed(session, request, *conn);
  }
  return json_http_receive_header(session, request, response, *conn);
}

/// One exchange. With a null `result` the body of the response is not read.
template <typename Body>
int json_http_do(const HTTP_Session_var& session, HTTP_Request& request, Body* body,
                 HTTP_Response& response, json_spirit::Value* result, bool skip_content_type,
                 bool streaming) {
  HTTP_Connection_var conn;
  const int code =
      streaming ? json_http_header_do_stream_transfer(session, request, body, response, conn)
                : json_http_header_do_buffer_transfer(session, request, body, response, conn);
  if (code != JSON_HTTP_OK || result == nullptr) return code;
  return json_http_receive_value(session, request, response, *conn, result, skip_content_type);
}

/// Exchanges until one succeeds; whether one did. See json_http_retry().
template <typename Body>
bool json_http_do_with_retries(const HTTP_Session_var& session, HTTP_Request& request, Body* body,
                               HTTP_Response& response, json_spirit::Value* result,
                               bool skip_content_type, bool streaming, int retries,
                               int retry_timeout) {
  return json_http_retry(retries, retry_timeout, [&] {
           return json_http_do(session, request, body, response, result, skip_content_type,
                               streaming);
         }) == JSON_HTTP_OK;
}

/// The same up to the head of the response; always in chunks.
inline bool json_http_do_with_retries(const HTTP_Session_var& session, HTTP_Request& request,
                                      const json_spirit::Value* body, HTTP_Response& response,
                                      int retries, int retry_timeout, HTTP_Connection_var& conn) {
  return json_http_retry(retries, retry_timeout, [&] {
           return json_http_header_do_stream_transfer(session, request, body, response, conn);
         }) == JSON_HTTP_OK;
}
