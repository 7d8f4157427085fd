#pragma once

#include <ace/INET_Addr.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_forward_map.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"
#include "transport/framing.h"
#include "transport/limits.h"
#include "transport/metrics.h"
#include "transport/outbox.h"
#include "transport/sent_calls.h"
#include "transport/transport_export.h"
#include "transport/wire.h"

class JSON_RPC_Fan_Out;

namespace transport {

/// A JSON-RPC channel over a stream socket. Its connection, on one loop, owns it; everyone else
/// holds it weakly, or strong for the length of a call. Any thread may send.
///
/// A request is answered exactly once: the channel keeps the ids that await an answer, and a
/// response to any other id is dropped with a log line. It also keeps the ids of the requests that
/// it sent: when it closes, whoever waits for them in the response map gets -32603. io_mutex() is
/// null: messages are queued whole, so no writer has to keep others out.
class TRANSPORT_EXPORT Stream_Channel : public JSON_RPC_Channel {
public:
  /// Channel types; `type()` of every channel of this transport is one of them.
  enum Type { AGENT = 1, STREAM = 2, HTTP = 3, WEBSOCKET = 4 };

  /// What the kernel knows of the two ends; a Unix socket counts as the loopback address, port 0.
  struct Addresses {
    ACE_INET_Addr local;
    ACE_INET_Addr remote;
  };

  Stream_Channel(const Limits& limits, const Addresses& addresses, std::weak_ptr<Wire> wire);
  ~Stream_Channel() override;

  /// The weak reference that the channel gives of itself; set once, by whoever created it.
  const JSON_RPC_Channel_ptr& self() const { return self_; }
  void self(const JSON_RPC_Channel_ptr& self) { self_ = self; }

  /// Serialises `obj` before it returns, and never waits. 0, or -1 with errno: ENOTCONN closed;
  /// EINVAL a value that cannot be written (a response is then replaced by -32603 under its id), or
  /// a response to an id that awaits none; ENOBUFS too much is unsent: a call is refused, a
  /// notification closes the channel; EOPNOTSUPP no answer, where only answers can be sent (HTTP).
  int send(JSON_RPC_Object_var obj) override;

  /// Sends what `gen` generates. On a thread that is no loop's it waits while too much is unsent,
  /// for at most the stall time without progress (ETIMEDOUT); on a loop thread it fails (ENOBUFS).
  /// A message that fails half-way on the wire closes the channel.
  int send(JSON_Generator& gen) override;

  /// The same by hand: the generator is the calling thread's until its send_end(). One open message
  /// a thread (EBUSY). An answer whose request goes before on that thread is broken off: the peer
  /// gets -32603, or where some of it stands in the line, the channel closes.
  yajl_gen_t* send_begin() override;
  int send_end() override;

  /// Stands in for the requester until answer `forward_id` comes: a Stream_Channel's request must
  /// await an answer (EINVAL). -1 with errno ENOTCONN when either end is closed, ENOMEM.
  int put_forward_entry(JSON_RPC_Channel_ptr requester, const json_spirit::Value& id) override;
  /// Gives the endpoint that put_forward_entry() made for a requester that is a Stream_Channel.
  int get_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester,
                        json_spirit::Value& id) override;
  /// Sends `obj`, a request under its requester's id or a notification; `obj` is as before
  /// afterwards. 0; -1 with errno as send(), or as put_forward_entry(), or ELOOP when `requester`
  /// is this channel: the request is then the caller's to answer.
  int forward(JSON_RPC_Channel_ptr requester, JSON_RPC_Object_var obj) override;

  int get_local_addr(ACE_Addr& addr) override;
  int get_remote_addr(ACE_Addr& addr) override;
  int get_original_addr(ACE_Addr& addr) const override;
  bool is_ssl() override { return tls_; }
  /// Whether TLS carries it; set before the channel is shared.
  void tls(bool on) { tls_ = on; }
  HTTP_SOCK_State request_state() override;
  HTTP_SOCK_State response_state() override;

  /// A request of this channel was read: it is owed an answer. The number of those.
  std::size_t await(const json_spirit::Value& id) { return outbox_.await(id); }
  /// Answers `id` with an error if it still awaits an answer; whether it did.
  bool answer_error(const json_spirit::Value& id, int code, const char* message);
  /// A request with this id, or somebody who was to answer it, has gone: if that leaves an answer
  /// that nobody will give, -32603 is sent.
  void request_gone(const json_spirit::Value& id) noexcept;
  /// An error under `id`, null where none was read, for text that is no message.
  void complain(const json_spirit::Value& id, int code, const char* message = nullptr);

  /// Where what this channel does is counted; null: nowhere. Before it is shared.
  void metrics(Metrics* metrics) { metrics_ = metrics; }
  Metrics* metrics() const { return metrics_; }
  void count(Metrics::Counter counter, std::uint64_t n = 1) {
    if (metrics_ != nullptr) metrics_->add(counter, n);
  }
  /// When what is being read arrived. The loop's.
  void arrived(std::chrono::steady_clock::time_point time) { arrived_ = time; }
  std::chrono::steady_clock::time_point arrived() const { return arrived_; }
  /// An answer has been put in the line. `code` is 0 for a result.
  void count_answer(const Awaited_Call& call, int code);

  void framing(Framing framing);
  Framing framing() const { return framing_; }
  const Limits& limits() const { return limits_; }
  Outbox& outbox() { return outbox_; }
  const Outbox& outbox() const { return outbox_; }

  /// A response was read: hands it to whose request was forwarded, or else to whoever waits in the
  /// response map. 0, or -1 when it ended nowhere. On the channel's loop.
  int answered(const JSON_RPC_Object_var& response);
  /// What came under `id` is broken: who waits for an answer under it gets -32603. `answer`: it was
  /// one, and not only may have been. Whether it was. On the channel's loop.
  bool fail_answer(const json_spirit::Value& id, bool answer);
  /// Whether answers are to come.
  bool awaits_answers() const;
  /// Forgets calls whose callers have given up: their answers may never come.
  void forget_given_up_calls() { calls_.forget_given_up(); }
  /// The peer gives none any more: calls and forwarded requests end with -32603, and no further
  /// ones are sent. On the channel's loop.
  void no_more_answers();

  /// Whether whoever was last relayed an answer of this channel is to take something of it before
  /// more comes; `source` is then resumed. On the channel's loop.
  bool last_requester_waits(const std::weak_ptr<Wire>& source);

  /// Asks the loop to close the connection; `reason` is a literal. Without memory to ask it is left
  /// in close_reason(). False when that was asked before.
  bool close_soon(const char* reason) noexcept;
  /// Why the connection is to close; null while it is not.
  const char* close_reason() const { return closing_; }
  /// The connection has gone: nothing can be sent any more, whoever waits to send gives up, and
  /// calls and forwarded requests end with -32603. On the channel's loop.
  void closed();

private:
  friend class Answer_Endpoint;
  friend class Outgoing_Stream;
  struct Open_Message;
  typedef std::unordered_map<const JSON_RPC_Channel*, JSON_RPC_Channel_var> Endpoints;

  int send_call(const json_spirit::Value& id, std::string_view text);
  int send_under(JSON_RPC_Object& obj, int forward_id);
  int send_generated_call(const std::string& id, JSON_Generator& gen);
  int generate(JSON_Generator& gen);
  std::vector<std::unique_ptr<Open_Message>>::iterator own_message();
  void abandon_answer(const json_spirit::Value& id);
  JSON_RPC_Channel_ptr make_endpoint(const json_spirit::Value& id);
  bool keep_endpoint(const JSON_RPC_Channel_var& endpoint);
  void drop_endpoint(const JSON_RPC_Channel& endpoint);
  int take_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester, json_spirit::Value& id);
  bool drop_forward_entry(int forward_id);
  int call_answered(const JSON_RPC_Object_var& response, Sent_Calls::Kind kind);
  bool answer_forwarded(const JSON_RPC_Object_var& response);
  Outbox::Result begin_open(std::string_view text, const json_spirit::Value* answered,
                            std::uint64_t& stream, bool& wake_loop);
  void break_off(std::uint64_t stream, const json_spirit::Value& id, const char* message);
  void fail_forwarded(int forward_id, const JSON_RPC_Forward_Map::data_type& entry);
  void fail_calls();

  int send_object(const JSON_RPC_Object& obj);
  int send_prepared(JSON_RPC_Fan_Out& fan_out, const JSON_RPC_Object& obj);
  int put(Outbox::Kind kind, const json_spirit::Value& id, std::string_view text, int code = 0);
  Outbox::Result put_text(Outbox::Kind kind, const json_spirit::Value& id, std::string_view text,
                          int code, bool& wake_loop);
  int conclude(Outbox::Kind kind, const json_spirit::Value& id, Outbox::Result result,
               bool wake_loop);
  void report_dropped(Outbox::Result result, const json_spirit::Value& id);
  void wake() noexcept;

  const Limits limits_;
  const Addresses addresses_;
  const std::weak_ptr<Wire> wire_;
  JSON_RPC_Channel_ptr self_;   // set before the channel is shared, then only read
  bool tls_ = false;            // the same
  Metrics* metrics_ = nullptr;  // the same
  std::atomic<Framing> framing_{Framing::LINES};
  std::atomic<const char*> closing_{nullptr};  // why the loop has been asked to close
  Outbox outbox_;
  Sent_Calls calls_;
  mutable std::mutex forward_mutex_;                // a leaf
  std::unique_ptr<JSON_RPC_Forward_Map> forwards_;  // guarded by forward_mutex_; null when closed
  JSON_RPC_Channel_ptr last_requester_;             // the loop's
  std::chrono::steady_clock::time_point arrived_;   // the same
  std::mutex endpoints_mutex_;                      // a leaf
  Endpoints endpoints_;    // guarded by endpoints_mutex_: for requests of this channel that others
                           // are to answer
  std::mutex open_mutex_;  // a leaf
  std::vector<std::unique_ptr<Open_Message>> open_;  // guarded by open_mutex_; one a thread at most
};

}  // namespace transport
