#pragma once

#include "json_rpc/json_http_session.h"
#include "json_rpc/json_rpc_export.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/http_request.h"
#include "vexa/http_response.h"
#include "vexa/http_session.h"
#include "vexa/json_generator.h"

/// A REST client for one server whose bodies are JSON: GET, POST, PUT, DELETE, each with the parsed
/// reply. A derived class overrides fill_request() to put into each request what it needs, an
/// authorisation say.
///
/// Every verb gives true on success: the exchange succeeded (see JSON_HTTP_Session; retries are at
/// first 5 within 300 seconds) and the status is accepted. `*result` is the reply's JSON value,
/// null when it has no body; a refused status leaves what was parsed there, so that an error
/// document can be read. A null `result` reads no body, a null `body` sends none. Failures leave an
/// error line. One thread at a time; calls block.
class JSON_RPC_EXPORT JSON_RESTful_Client {
public:
  /// Without a server. `check_res_status`: whether only the statuses 200 to 299 count as success;
  /// otherwise every status does.
  explicit JSON_RESTful_Client(bool check_res_status);
  JSON_RESTful_Client(const HTTP_Session_var& session, bool check_res_status);
  JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool check_res_status);
  JSON_RESTful_Client(const JSON_RESTful_Client&) = delete;
  JSON_RESTful_Client& operator=(const JSON_RESTful_Client&) = delete;
  virtual ~JSON_RESTful_Client();

  /// Another session; true.
  virtual bool reset(const HTTP_Session_var& session);
  /// A new session, with time-outs of 120 seconds for sending and for receiving; false when it
  /// cannot be made, and nothing changes.
  virtual bool reset(const char* host, unsigned short port, bool ssl);

  virtual bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* result);
  virtual bool post(HTTP_Request& request, JSON_Generator& body, json_spirit::Value* result);
  virtual bool post(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response,
                    json_spirit::Value* result);
  virtual bool put(HTTP_Request& request, const json_spirit::Value* body, HTTP_Response& response,
                   json_spirit::Value* result);
  virtual bool put(HTTP_Request& request, JSON_Generator& body, json_spirit::Value* result);
  virtual bool del(HTTP_Request& request, HTTP_Response& response);

  /// Called for every request before it is sent; false gives the call up. True, as it stands.
  virtual bool fill_request(HTTP_Request& request) const;

  /// The same with time-outs in seconds (0: none), retries, and the flags of
  /// HTTP_Session_Factory. Kept: does not come by the virtual reset(), and the limit of the seconds
  /// spent on retries stays.
  bool reset(const char* host, unsigned short port, bool ssl, int sock_send_timeout,
             int sock_recv_timeout, int sock_conn_timeout, int retries, int flags);

  explicit operator bool() const { return static_cast<bool>(session_); }
  bool clear_cookie() { return session_.clear_cookie(); }

  // See JSON_HTTP_Session.
  void skip_content_type(bool skip) { session_.skip_content_type(skip); }
  bool skip_content_type() const { return session_.skip_content_type(); }
  void streaming(bool streaming) { session_.streaming(streaming); }
  bool streaming() const { return session_.streaming(); }
  void retries(int retries) { session_.retries(retries); }
  void retry_timeout(int seconds) { session_.retry_timeout(seconds); }

  /// Whether failures of fill_request() and refused statuses are logged; at first they are.
  void logging_error(bool logging) { logging_error_ = logging; }

  /// Puts a header field into the session, for every request that has none of its own. False when
  /// it is refused (see HTTP_Headers), or there is no session.
  bool set_header(int type, const char* value);
  bool set_header(const char* name, const char* value);

  bool is_status_ok(int status) const {
    return !check_res_status_ || (status >= 200 && status <= 299);
  }

  bool get(HTTP_Request& request, json_spirit::Value* result);
  bool post(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* result);
  bool put(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* result);
  bool del(HTTP_Request& request);
  bool del(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* result);

  // The same by URI, which must be neither null nor "".
  bool get(const char* uri, HTTP_Response& response, json_spirit::Value* result);
  bool get(const char* uri, json_spirit::Value* result);
  bool post(const char* uri, JSON_Generator& body, json_spirit::Value* result);
  bool post(const char* uri, const json_spirit::Value* body, json_spirit::Value* result);
  bool post(const char* uri, const json_spirit::Value* body, HTTP_Response& response,
            json_spirit::Value* result);
  bool put(const char* uri, const json_spirit::Value* body, json_spirit::Value* result);
  bool put(const char* uri, const json_spirit::Value* body, HTTP_Response& response,
           json_spirit::Value* result);
  bool del(const char* uri, HTTP_Response& response);
  bool del(const char* uri);

private:
  struct Verb;
  static const Verb get_verb, post_verb, put_verb, delete_verb;
  template <typename Exchange>
  bool run(const Verb& verb, HTTP_Request& request, HTTP_Response& response, Exchange exchange);

  const bool check_res_status_;
  JSON_HTTP_Session session_;
  bool logging_error_ = true;
};
