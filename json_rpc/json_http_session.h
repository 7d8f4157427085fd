#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/http_connection.h"
#include "vexa/http_request.h"
#include "vexa/http_response.h"
#include "vexa/http_session.h"
#include "vexa/io_base.h"
#include "vexa/json_generator.h"

/// Requests to one HTTP server whose bodies are JSON, if they have any. A reply is parsed while it
/// is received; its status is not judged: a 404 with a JSON body is a success here.
///
/// Failures of the transport are tried again (see retries()), those of content never: a reply of
/// another type, or one that does not parse. Every failure leaves an error line, except that a
/// request for which there is no connection is explained by the session's own. One thread at a
/// time; calls block for the whole exchange and the sleeps between attempts. A request that was
/// tried again may have been carried out twice.
class JSON_RPC_EXPORT JSON_HTTP_Session {
public:
  static constexpr int DEFAULT_RETRYS = 5;
  static constexpr int DEFAULT_RETRY_TIMEOUT = 300;  ///< seconds

  /// `session` may be null. After a failure of the transport the request is tried again up to
  /// `retries` times, and as long as the sleeps in between add up to less than `retry_timeout`
  /// seconds; -1 lifts either limit.
  JSON_HTTP_Session(const HTTP_Session_var& session, int retries, int retry_timeout);

  const HTTP_Session_var& get() const { return session_; }
  void reset(const HTTP_Session_var& session) { session_ = session; }
  explicit operator bool() const { return session_.get() != nullptr; }

  /// Whether replies of any Content-Type are taken; otherwise it must be application/json, whatever
  /// its parameters. False at first.
  void skip_content_type(bool skip) { skip_content_type_ = skip; }
  bool skip_content_type() const { return skip_content_type_; }

  /// Whether a body is sent in chunks while it is generated, as at first; otherwise it is
  /// serialised whole, and goes out with a Content-Length. Kept: with chunks, a POST or PUT without
  /// a body says that it is chunked too.
  void streaming(bool streaming) { streaming_ = streaming; }
  bool streaming() const { return streaming_; }

  void retries(int retries) { retries_ = retries; }
  void retry_timeout(int seconds) { retry_timeout_ = seconds; }

  /// Forgets the session's cookies; false without a session.
  bool clear_cookie();

  /// One exchange each; the request's method is set here. True when a reply came and, unless
  /// `result` is null, could be taken: `*result` is then its JSON value, or null when it has no
  /// body. After a failure `*result` is as far as it got. With a null `result` the body of the
  /// reply is not read. A null `body` sends none.
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* result);
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value& result) {
    return get(request, response, &result);
  }
  bool post(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response,
            json_spirit::Value* result);
  bool post(HTTP_Request& request, JSON_Generator& body, HTTP_Response& response,
            json_spirit::Value* result);
  bool put(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response,
           json_spirit::Value* result);
  bool put(HTTP_Request& request, JSON_Generator& body, HTTP_Response& response,
           json_spirit::Value* result);
  bool delete_(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* result);

  /// A GET up to the head of its reply, for whoever reads the body: the connection, or null.
  HTTP_Connection_var get(HTTP_Request& request, HTTP_Response& response);

  /// Copies the body of such a reply, whose type is looked at as above, into `out`. Never tried
  /// again. True when all of it was written, also when there was none.
  bool get(HTTP_Request& request, HTTP_Response& response, const HTTP_Connection_var& connection,
           IO_Base& out);

private:
  template <typename Body>
  bool exchange(int method, HTTP_Request& request, Body* body, HTTP_Response& response,
                json_spirit::Value* result);

  HTTP_Session_var session_;
  bool skip_content_type_ = false;
  bool streaming_ = true;
  int retries_;
  int retry_timeout_;
};
