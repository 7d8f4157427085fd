#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "http/door.h"
#include "http/open_file.h"
#include "http/request_parser.h"
#include "http/response_head.h"
#include "http/site.h"
#include "transport/connection.h"
#include "transport/inbound.h"
#include "transport/intake.h"

namespace http {

/// One connection of HTTP/1.1: a request at a time, each answered before the next is looked at, so
/// that answers leave in order. While an answer is awaited the connection is not read.
///
/// A body for the RPC path goes to the reader as it comes; its answer is taken out of the channel's
/// line and leaves with a head, in chunks when it is not complete yet. What else there is goes to
/// the site. On its loop alone.
class Http_Connection final : public transport::Connection,
                              private transport::Inbound::Sink,
                              private Exchange {
public:
  Http_Connection(transport::Opened opened, std::shared_ptr<const Door_Options> options);
  ~Http_Connection() override;

  void start();

  /// The requests in work: at most one.
  std::size_t owed() const override;

private:
  enum State { READ, ANSWER, ENDED };
  /// What a request's body is for; PASS and DROP throw it away, before an answer or a refusal.
  enum Use { RPC, SITE, PASS, DROP, UPGRADE };

  /// What is known of the present request beside its head.
  struct Current {
    unsigned long long number = 0;  // tells late answers to earlier ones
    Use use = DROP;
    int status = 200;  // of the answer, or what it is refused with
    const char* reason = nullptr;
    const char* allow = nullptr;  // methods, with 405
    bool keep_alive = false;
    bool begun = false;         // the head of the answer has been written
    bool got_message = false;   // the body held a JSON-RPC message
    bool notification = false;  // and that is not answered
    Body_End body_end = Body_End::LENGTH;
    std::string cors;  // header lines for a page of another site
    std::string body;  // of SITE
    std::size_t body_bytes = 0;
  };

  // Connection
  bool consume(const char* data, std::size_t length) override;
  void end_of_input() override;
  void try_resume() override;
  bool can_go_on() const override;
  bool take(std::vector<transport::Output_Piece>& batch) override;
  bool owes_more() const override;
  bool expects(transport::Loop_Time& since) const override;
  void stalled() override;
  bool idle_allowed() override;
  void give_up_owed() override;

  // Inbound::Sink
  void message(const JSON_RPC_Object_var& object, std::size_t bytes) override;
  bool overloaded() const override { return false; }

  // Exchange
  void respond(int status, const HTTP_Headers& headers, std::string body) override;
  void respond_file(int status, const HTTP_Headers& headers, int descriptor, std::uint64_t offset,
                    std::uint64_t length) override;
  Later defer() override;

  // The request.
  void head_complete();
  int check_origin();
  void route();
  void route_rpc();
  bool wants_upgrade() const;
  bool is_preflight() const;
  bool must_not_wait() const;
  void expect_body(Use use);
  void refuse(int status, const char* reason = nullptr, const char* allow = nullptr);
  void refuse_now(int status);
  void respond_refusal();
  void body(std::string_view piece);
  void request_complete(std::string_view rest);
  void rpc_complete();
  void answer_site();
  void upgrade(std::string_view rest);

  // The answer.
  void collect();
  void add_piece(transport::Output_Piece piece);
  void begin_answer(const transport::Output_Piece& piece, std::string& head);
  void write_head(Response_Head head, std::string& text) const;
  void respond_preflight();
  void put(std::string text);
  void read_file();
  void finished();
  bool has_room() const;
  bool head_only() const { return head_.request.method() == HTTP_METHOD_HEAD; }

  const std::shared_ptr<const Door_Options> options_;
  Http_Request_Head head_;
  Request_Parser parser_;
  State state_ = READ;
  Current current_;
  bool head_done_ = false;
  transport::Loop_Time begun_at_;  // the head
  std::optional<transport::Intake> intake_;
  std::unique_ptr<transport::Inbound> inbound_;
  std::vector<transport::Output_Piece> taken_;  // out of the channel's line
  std::vector<transport::Output_Piece> ready_;  // to be written
  Open_File file_;                              // whose bytes follow
};

}  // namespace http
