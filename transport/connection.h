#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "transport/byte_stream.h"
#include "transport/connection_slot.h"
#include "transport/log_context.h"
#include "transport/loop.h"
#include "transport/opened.h"
#include "transport/output_batch.h"
#include "transport/owed_request.h"
#include "transport/server_state.h"
#include "transport/stream_channel.h"
#include "transport/wire.h"

namespace transport {

/// A stream on its loop, and the channel that it carries: reads bytes and hands them to the
/// protocol that derives from this, writes what there is to write, closes by the limits. Owns the
/// channel.
///
/// Everything happens on the loop's thread, except wake(), resume(), close_soon() and
/// request_gone(). Lives while the loop lists it or one of its handlers is pending.
class TRANSPORT_EXPORT Connection : public Wire,
                                    public Answer_Debt,
                                    public Loop_Member,
                                    public Byte_Stream::User,
                                    public std::enable_shared_from_this<Connection> {
public:
  ~Connection() override;

  /// Answers what is owed with -32001, sends all and closes.
  void drain();
  void close(const char* reason);
  bool closed() const { return closed_; }
  const JSON_RPC_Channel_ptr& channel() const { return weak_; }
  /// The requests in work: those that await an answer, and answers that are being produced.
  virtual std::size_t owed() const { return stream_->outbox().in_work(); }
  std::size_t unsent() const { return stream_->outbox().unsent(); }

  void wake() override;
  void resume() override;
  void close_soon(const char* reason) override;
  void request_gone(const json_spirit::Value& id) noexcept override;
  void tick(Loop_Time now) override;
  void loop_ended() override { close(nullptr); }
  void flush() override;
  void on_read(const boost::system::error_code& error, std::size_t length) override;
  void on_writable(const boost::system::error_code& error) override;

protected:
  explicit Connection(Opened opened);

  /// Makes the channel and joins the loop, before anything else happens.
  void begin(Stream_Channel::Type type, Framing framing, const Limits& limits);
  /// Reads on, unless that is under way.
  void read();
  /// Gives bytes to the protocol, those first that it left over, and reads on if it wants more.
  void go_on();
  /// Keeps what the protocol cannot take now; it is not read until go_on().
  void pause(const char* data, std::size_t length);
  bool paused() const { return paused_; }
  /// The peer's bytes are not wanted any more; when all is sent the connection closes.
  void stop_reading() { stopped_reading_ = true; }
  bool input_ended() const { return input_ended_; }
  /// Nobody else finds the channel any more; an agent's id is free.
  void unlist();
  void post(void (Connection::*operation)());
  /// Runs a part of the connection's work. Without memory, or after any other exception, a
  /// connection cannot go on.
  template <typename Operation>
  void guarded(Operation operation);

  // What a protocol is.

  /// Takes bytes; false when it wants no more now, having paused, stopped reading or closed.
  virtual bool consume(const char* data, std::size_t length) = 0;
  /// A turn of reading ends: what it brought may leave.
  virtual void turn_ends() {}
  /// The peer sends no more.
  virtual void end_of_input() = 0;
  /// Looks whether what it waited for has come.
  virtual void try_resume() = 0;
  virtual bool can_go_on() const = 0;
  /// Moves what is to be written into `batch`; false when there is nothing now.
  virtual bool take(std::vector<Output_Piece>& batch);
  /// All that was owed has been answered, because this process stops.
  virtual void give_up_owed() {}
  /// Whether something is to come out yet, beside what the outbox knows of.
  virtual bool owes_more() const { return false; }
  /// The connection, whose input has ended, is not to linger.
  virtual bool abrupt() const { return false; }
  /// Whether the peer has begun something that it has to go on with; `since` is when bytes of it
  /// last came.
  virtual bool expects(Loop_Time& since) const = 0;
  /// It did not.
  virtual void stalled();
  virtual bool idle_allowed();
  /// The connection closes: before the channel is told, and whatever is kept for the peer goes.
  virtual void closing(const char* reason);
  /// It has closed, and the channel has been told.
  virtual void ended() {}

  const std::shared_ptr<Loop>& loop() const { return loop_; }
  const std::shared_ptr<Server_State>& state() const { return state_; }
  const Stream_Channel::Addresses& addresses() const { return addresses_; }
  Stream_Channel& stream() { return *stream_; }
  const Stream_Channel& stream() const { return *stream_; }
  Byte_Stream& bytes() { return *bytes_; }
  Loop_Time last_read() const { return last_read_; }
  /// Gives the stream away, before this closes.
  Opened release();

private:
  void take_input(const boost::system::error_code& error, std::size_t length);
  void arrived(std::size_t bytes);
  bool read_more();
  void end_turn(bool go_on);
  void write_out();
  bool fetch();
  bool write();
  void wait_writable();
  void linger();
  void check_time(Loop_Time now);
  void check_progress(Loop_Time now);
  bool socket_ready(short events);
  bool output_moved();

  const std::shared_ptr<Loop> loop_;
  const std::shared_ptr<Server_State> state_;
  Connection_Slot slot_;
  std::unique_ptr<Byte_Stream> bytes_;
  const Stream_Channel::Addresses addresses_;
  JSON_RPC_Channel_ptr weak_;         // set by begin(), then only read: other threads do
  JSON_RPC_Channel_var channel_;      // until close()
  Stream_Channel* stream_ = nullptr;  // the same
  std::string label_;                 // for log lines

  bool reading_ = false;          // a read of the stream is pending
  bool paused_ = false;           // not read: the protocol cannot take more now
  bool input_ended_ = false;      // the peer sends no more
  bool stopped_reading_ = false;  // what the peer sends is not wanted any more
  bool lingering_ = false;    // all is sent; what still comes is thrown away until the peer closes
  bool write_waits_ = false;  // for the stream to have room
  bool closed_ = false;
  int held_by_kernel_ = 0;  // bytes, when that was last looked at
  Loop_Time last_read_;
  Loop_Time last_write_;
  Loop_Time linger_until_;

  std::string leftover_;          // read, but not yet taken: paused
  Output_Batch batch_;            // taken from the outbox
  std::array<char, 2048> input_;  // one read; larger ones go on in the loop's buffer
};

/// For guarded(): ends what threw.
TRANSPORT_EXPORT const char* failed_connection();

template <typename Operation>
void Connection::guarded(Operation operation) {
  if (closed_) return;
  const Log_Context context(label_.c_str());
  try {
    operation();
  } catch (...) {
    close(failed_connection());
  }
}

}  // namespace transport
