#pragma once

#include <array>
#include <boost/asio/generic/stream_protocol.hpp>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "transport/inbound.h"
#include "transport/link_options.h"
#include "transport/loop.h"
#include "transport/outbox.h"
#include "transport/owed_request.h"
#include "transport/server_state.h"
#include "transport/stream_channel.h"
#include "transport/wire.h"

namespace transport {

/// Whoever opened a connection, and is told when it has closed. On the connection's loop.
class Connection_Watcher {
public:
  virtual ~Connection_Watcher() = default;
  /// `reason` is null when the peer closed, or the socket failed.
  virtual void connection_closed(const char* reason) = 0;
};

/// A connected socket on its loop: reads bytes into messages and dispatches them, writes what the
/// channel's outbox holds, closes by the limits. Owns the channel.
///
/// While the channel owes its peer much, requests are read but parked, so that answers which stand
/// behind them still arrive: two ends that both waited for the other to read would wait forever.
/// When too much is parked as well, further requests are refused where this end awaits answers, and
/// else the channel is not read.
///
/// Everything happens on the loop's thread, except wake(), resume(), close_soon() and
/// request_gone(). Lives while the loop lists it or one of its handlers is pending.
class Connection final : public Wire,
                         public Answer_Debt,
                         public Loop_Member,
                         private Inbound::Sink,
                         public std::enable_shared_from_this<Connection> {
public:
  typedef boost::asio::generic::stream_protocol::socket Socket;

  /// `socket` belongs to the loop's context, is connected and does not block.
  Connection(std::shared_ptr<Loop> loop, std::shared_ptr<Server_State> state, Socket socket);
  ~Connection() override;

  /// Registers the channel and begins to read.
  void start(const Stream_Channel::Addresses& addresses);
  /// The same where this end opened the connection: it is not closed for being idle, text that is
  /// no message is not answered, and `watcher` is told of the end.
  void start(const Stream_Channel::Addresses& addresses, const Link_Options& options,
             const std::weak_ptr<Connection_Watcher>& watcher);

  /// Answers what is owed with -32001, sends all and closes.
  void drain();
  void close(const char* reason);
  bool closed() const { return closed_; }
  const JSON_RPC_Channel_ptr& channel() const { return weak_; }
  /// The requests in work: those that await an answer, and answers that are being produced.
  std::size_t owed() const { return stream_->outbox().in_work(); }
  std::size_t unsent() const { return stream_->outbox().unsent(); }

  void wake() override;
  void resume() override;
  void close_soon(const char* reason) override;
  void request_gone(const json_spirit::Value& id) noexcept override;
  void tick(Loop_Time now) override;
  void loop_ended() override { close(nullptr); }

private:
  struct Parked {
    JSON_RPC_Object_var object;
    std::size_t bytes;
  };

  void begin(const Stream_Channel::Addresses& addresses, const Link_Options& options);
  void message(const JSON_RPC_Object_var& object, std::size_t bytes) override;
  bool overloaded() const override;

  template <typename Operation>
  void guarded(Operation operation);
  void post(void (Connection::*operation)());
  void read();
  void on_read(const boost::system::error_code& error, std::size_t length);
  void take_input(const boost::system::error_code& error, std::size_t length);
  void end_turn(bool go_on);
  bool read_more();
  bool consume(const char* data, std::size_t length);
  void try_resume();
  void take_leftover();
  void end_of_input();
  void no_more_answers(const char* reason);
  void unlist();
  bool parked_full() const;
  bool busy() const;
  bool can_go_on() const;
  void park(const JSON_RPC_Object_var& object, std::size_t bytes);
  void refuse(const json_spirit::Value& id);
  void dispatch_parked();
  void dispatch(const JSON_RPC_Object_var& object);

  void flush();
  void write_out();
  bool fetch();
  bool write();
  void on_writable(const boost::system::error_code& error);
  void linger();
  static void tell(Connection_Watcher& watcher, const char* reason);
  void check_time(Loop_Time now);
  bool idle_allowed();
  bool socket_ready(short events);
  bool output_moved();

  const std::shared_ptr<Loop> loop_;
  const std::shared_ptr<Server_State> state_;
  Socket socket_;
  JSON_RPC_Channel_ptr weak_;                  // set by start(), then only read: other threads do
  JSON_RPC_Channel_var channel_;               // until close()
  Stream_Channel* stream_ = nullptr;           // the same
  std::string label_;                          // for log lines
  bool dialed_ = false;                        // this end opened the connection
  bool abrupt_ = false;                        // it does not linger
  std::weak_ptr<Connection_Watcher> watcher_;  // where dialed_
  std::unique_ptr<Inbound> inbound_;

  bool reading_ = false;          // a read of the socket is pending
  bool paused_ = false;           // not read: too much is parked, or its relay must wait
  bool relay_waits_ = false;      // where it is paused: for the relay's requester
  bool input_ended_ = false;      // the peer sends no more
  bool stopped_reading_ = false;  // what the peer sends is not wanted any more
  bool lingering_ = false;    // all is sent; what still comes is thrown away until the peer closes
  bool write_waits_ = false;  // for the socket to become writable
  bool closed_ = false;
  int held_by_kernel_ = 0;  // bytes, when that was last looked at
  Loop_Time last_read_;
  Loop_Time last_write_;
  Loop_Time linger_until_;

  // Calls that were read while the channel was busy, in their order, and the bytes that they cost.
  std::list<Parked> parked_;
  std::size_t parked_bytes_ = 0;
  std::size_t parked_requests_ = 0;
  std::size_t refused_ = 0;  // since there was room for more of them

  std::string leftover_;             // read, but not yet taken: the channel was paused
  std::vector<Output_Piece> batch_;  // taken from the outbox
  std::size_t batch_piece_ = 0;      // the first piece that is not written whole
  std::size_t batch_byte_ = 0;       // and how much of it is
  std::array<char, 2048> input_;     // one read; larger ones go on in the loop's buffer
};

}  // namespace transport
