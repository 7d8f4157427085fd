#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_writer.h"
#include "transport/wire.h"
#include "vexa/yajl_printer.h"

namespace transport {

class Stream_Channel;

/// Where the answer to one forwarded request goes: a channel of its own, because send_begin() and
/// send_end() carry no key that would tell whose answer it is. The requester's channel owns it
/// until the answer is given; forwarders and their readers hold it weakly, or strong while they
/// relay.
///
/// A streamed answer is held until it is complete or over 64 KiB; then it stands in the requester's
/// line as an open message, which its source is not to overtake (may_go_on()). With header framing,
/// whose length comes first, it is held until it is complete, and over 64 KiB its source goes on
/// only while the requester takes what is before it. It never waits. When it goes without
/// having answered, and nobody else answers for the request, -32603 is sent.
///
/// Used by one thread at a time: whoever took it out of a forward map.
class Answer_Endpoint final : public JSON_RPC_Channel, private YAJL_Printer {
public:
  /// Bytes of an answer that are held before it stands in the line; a larger one is large.
  static constexpr std::size_t held_most = 64u << 10;

  /// `requester` is a Stream_Channel, whose request `id` it answers.
  Answer_Endpoint(const JSON_RPC_Channel_ptr& requester, const json_spirit::Value& id);
  ~Answer_Endpoint() override;

  /// The answer as a message, whose id must be the requester's. The endpoint has then done its
  /// work, also when that failed: -1 with errno as the requester's channel gives it.
  int send(JSON_RPC_Object_var obj) override;
  int send(JSON_Generator& gen) override;

  /// The answer as a stream. send_end() gives -1 with errno EINVAL when the id awaits no answer any
  /// more, ENOTCONN when the requester has gone; what was written then went nowhere.
  yajl_gen_t* send_begin() override;
  int send_end() override;

  /// The stream breaks off. The requester gets -32603 "Internal error, forwarder is closed."
  /// instead; where it has been sent a part of the answer already, its connection is closed.
  void abandon();

  /// What has come goes into the requester's line, if the stream stands there already: its source
  /// may be slow.
  void pass_on_begun();

  /// Whether what feeds the stream may go on; if not, `source` is resumed when it may.
  bool may_go_on(const std::weak_ptr<Wire>& source);

  const JSON_RPC_Channel_ptr& requester() const { return requester_; }

  /// Will not be used: somebody else answers.
  void release();

  int get_local_addr(ACE_Addr& addr) override;
  int get_remote_addr(ACE_Addr& addr) override;
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return response_state(); }
  HTTP_SOCK_State response_state() override;

private:
  enum State { HELD, IN_LINE, DONE };

  void print(const char* text, std::size_t length) override;
  void pass_on();
  int finish(Stream_Channel& requester);
  int put_rest(Stream_Channel& requester);
  void break_off();
  void fail(int error);

  const JSON_RPC_Channel_ptr requester_;
  const json_spirit::Value id_;
  State state_ = HELD;
  int error_ = 0;
  JSON_RPC_Writer writer_;
  std::string text_;          // what has not been put in the line yet
  std::uint64_t stream_ = 0;  // in the requester's outbox, when IN_LINE
};

}  // namespace transport
