#pragma once

#include <string>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/http_connection.h"
#include "vexa/http_request.h"
#include "vexa/http_response.h"
#include "vexa/http_session.h"
#include "vexa/json_generator.h"

/// JSON-RPC 2.0 calls by HTTP POST to one URI of a server. Two levels: message objects, one attempt
/// each; and a method's name with params, whose reply is a plain JSON value, tried again while it
/// cannot be sent.
///
/// Failures leave an error line (a missing connection the HTTP session's own) and give null or
/// false. One thread at a time; calls block. Only a status of 200 is a success, except where a
/// caller builds the request.
class JSON_RPC_EXPORT JSON_RPC_HTTP_Session {
public:
  /// `sess` may be null; a null `uri` counts as "". A request that could not be sent is sent again
  /// up to `retries` times, and as long as the sleeps in between, of 1, 2, 4 and so on up to 60
  /// seconds, add up to less than `retry_timeout` seconds; -1 lifts either limit.
  JSON_RPC_HTTP_Session(const HTTP_Session_var& sess, const char* uri, int retries,
                        int retry_timeout);

  /// Kept: calls by a method's name go to the URI of the constructor still, those of objects to
  /// this one.
  void reset(const HTTP_Session_var& sess, const char* uri);

  void retries(int retries) { retries_ = retries; }
  void retry_timeout(int seconds) { retry_timeout_ = seconds; }
  explicit operator bool() const { return sess_.get() != nullptr; }

  /// Sends a request or a notification, in chunks while it is written; its id is the caller's. The
  /// exchange, whose response is to be received, or null.
  HTTP_Connection_var send_request(const JSON_RPC_Object_var& obj);

  /// The message that the response carries, or null: the status must be 200 and the type
  /// application/json.
  JSON_RPC_Object_var receive_response(const HTTP_Connection_var& conn);

  /// Both of them. The caller looks whether the id is that of `obj`.
  JSON_RPC_Object_var request(const JSON_RPC_Object_var& obj);

  /// Whether the notification was answered with 200; a body is not read.
  bool notify(const JSON_RPC_Object_var& obj);

  /// Calls a method under a fresh id. `result` gets the whole response document, with "result" or
  /// "error" in it; null does not read it. The two-argument form sends no params.
  bool request(const char* method, json_spirit::Value* result);
  bool request(const char* method, const json_spirit::Value& params, json_spirit::Value* result);

  /// Sends a request of the caller's making, method and framing included, with a JSON body. Any
  /// status will do.
  bool request(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response,
               json_spirit::Value* result);
  bool request(HTTP_Request& request, JSON_Generator& body, HTTP_Response& response,
               json_spirit::Value* result);

  /// The members "id" (fresh), "jsonrpc", "method" and, unless `params` is null, "params".
  static json_spirit::Object make_json_rpc_body(const char* method,
                                                const json_spirit::Value* params);

  /// Receives the head of the response and, unless `result` is null, its body, which must be there
  /// and be JSON.
  bool parse_body(const HTTP_Connection_var& conn, const HTTP_Request& request,
                  HTTP_Response& response, json_spirit::Value* result);
  /// The same when the head has been received.
  bool parse_body_i(const HTTP_Connection_var& conn, const HTTP_Request& request,
                    HTTP_Response& response, json_spirit::Value& result);

private:
  bool call(const char* method, const json_spirit::Value* params, json_spirit::Value* result);

  HTTP_Session_var sess_;
  HTTP_Request req_;  // of calls by a method's name
  std::string uri_;   // of calls by objects
  int retries_;
  int retry_timeout_;
};
