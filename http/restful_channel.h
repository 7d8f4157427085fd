#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "http/http_exchange.h"
#include "json_rpc/json_restful_channel.h"
#include "vexa/cgi_response.h"
#include "vexa/yajl_gen_handle.h"
#include "vexa/yajl_printer.h"

/// Takes the answer of one RESTful exchange to its connection, from any thread; called once. It
/// does not throw.
typedef std::function<void(int status, HTTP_Headers headers, std::string body)> Restful_Answer;

/// What a RESTful handler answers through. The answer is held whole, up to a limit, and leaves with
/// the send operation that completes it, or when the handler returns; what fails before that can be
/// replaced by an error. It needs nothing of the connection, which may have gone meanwhile.
///
/// Belongs to the thread that runs the handler, for the time of the call: no lock. Operations give
/// 0, or -1 with errno, beside their own: EALREADY after the answer, EINPROGRESS while another body
/// is begun, EMSGSIZE over the limit (and then the answer has been a 500).
class Restful_Channel final : public JSON_RESTful_Channel {
public:
  /// @param head the request's: its URI is rewritten as the path and query that were understood
  /// @param prefix how much of the path led to the handler
  /// @param max_body most bytes of an answer
  /// Throws std::bad_alloc.
  Restful_Channel(Http_Request_Head head, size_type prefix, std::size_t max_body,
                  Restful_Answer answer);
  ~Restful_Channel() override;

  bool is_answered() const { return answered_; }

  /// The handler returned `result`: answers what it wrote without sending it, or set as a status.
  /// 500 when there is nothing, when a streamed body was not ended, or `result` is -1.
  void finish(int result);

  /// Bytes of a body that is not JSON, or was not made here: Content-Type is for the handler to
  /// set. They leave when the handler returns.
  ssize_t write(const char* data, std::size_t length) override;

  /// The peer's own address: no proxy is believed.
  int get_original_addr(ACE_Addr& addr) const override;

  const CGI_Request* request() override { return &head_.request; }
  /// Status and fields of the answer. A status of 0 counts as 200; Content-Length, Connection and
  /// Transfer-Encoding are not the handler's.
  CGI_Response* response() override { return &response_; }

  /// EINVAL: what JSON cannot express, or the generator failed; nothing was answered.
  int send(const json_spirit::Value& body) override;
  int send(JSON_Generator& body) override;

  /// {"error": {"code": c, "message": "m"}} in place of what was written. Without a code c is the
  /// status, without a text m is the status's phrase. A status below 400 is answered as 500.
  int send_error(int status) override;
  int send_error(int status, int code) override;
  int send_error(int status, int code, const char* text) override;
  /// The code is errno, the message `text` with errno's.
  int send_last_error(int status, const char* text) override;

  /// The generator may be written to until the handler returns or begins another body; what comes
  /// after the body's end is ignored.
  yajl_gen_t* send_begin() override;
  /// EINVAL when no streamed body was begun, or it is no whole JSON text; then it is dropped.
  int send_end() override;

  int get_local_addr(ACE_Addr& addr) override;
  int get_remote_addr(ACE_Addr& addr) override;
  bool is_ssl() override { return head_.tls; }
  size_type uri_off() override { return uri_off_; }

private:
  /// Appends to the body as far as the limit and memory go.
  class Printer final : public YAJL_Printer {
  public:
    Printer(std::string& sink, std::size_t limit) : sink_(sink), limit_(limit) {}
    void print(const char* text, std::size_t length) override;
    int error() const { return error_; }
    void start() { error_ = 0; }
    /// What comes now is ignored.
    void stop();

  private:
    std::string& sink_;
    const std::size_t limit_;
    int error_ = 0;  // EMSGSIZE, ENOMEM; ECANCELED once stopped
  };

  bool may_begin();
  template <typename Body>
  int send_json(Body& body);
  int complete_json(int error, bool whole);
  int refuse_body(int error);
  void drop_body();
  void answer_json();
  void answer(int status);

  Http_Request_Head head_;
  size_type uri_off_;
  const Restful_Answer answer_;
  CGI_Response response_;
  std::string body_;
  Printer whole_;     // of what is written here
  Printer streamed_;  // of what the handler writes through gen_
  // Stays, without effect, when its body ends: guards of the handler may close maps after that.
  std::unique_ptr<YAJL_Gen_Handle> gen_;
  bool streaming_ = false;  // a streamed body is begun
  bool answered_ = false;
};
