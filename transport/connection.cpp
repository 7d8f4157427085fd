#include "transport/connection.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <exception>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_channel_pool.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "transport/rpc_errors.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr std::size_t bytes_a_turn = 256u << 10;  // then the loop's other connections have theirs
constexpr std::chrono::seconds linger_time{2};

std::string next_id() {
  static std::atomic<unsigned long long> last{0};
  return std::to_string(++last);
}

}  // namespace

const char* failed_connection() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return "there is no memory for it";
  } catch (...) {
    VEXA_ERROR("A connection failed: %C\n", vexa::exception_text());
    return "it failed";
  }
}

Connection::Connection(Opened opened)
    : loop_(std::move(opened.loop)),
      state_(std::move(opened.state)),
      slot_(std::move(opened.slot)),
      bytes_(std::move(opened.stream)),
      addresses_(opened.addresses) {}

Connection::~Connection() = default;

void Connection::begin(Stream_Channel::Type type, Framing framing, const Limits& limits) {
  std::unique_ptr<Stream_Channel> stream =
      std::make_unique<Stream_Channel>(limits, addresses_, weak_from_this());
  stream->tls(bytes_->is_tls());
  stream->metrics(state_->metrics.get());
  channel_ = JSON_RPC_Channel_var(stream.get());
  stream_ = stream.release();
  weak_ = JSON_RPC_Channel_ptr(channel_);
  stream_->self(weak_);
  stream_->type(type);
  stream_->id(next_id());
  stream_->framing(framing);
  label_ = "channel " + stream_->id();
  last_read_ = last_write_ = Loop::now();
  loop_->add(shared_from_this());
}

void Connection::read() {
  if (std::exchange(reading_, true)) return;
  bytes_->async_read(input_.data(), input_.size(), shared_from_this());
}

void Connection::on_read(const error_code& error, std::size_t length) {
  reading_ = false;
  guarded([&] { take_input(error, length); });
}

void Connection::take_input(const error_code& error, std::size_t length) {
  last_read_ = Loop::now();
  if (error) {
    const bool over = error == asio::error::shut_down;  // the protocol has ended, bytes may come
    if ((error != asio::error::eof && !over) || lingering_) return close(nullptr);
    (over ? stopped_reading_ : input_ended_) = true;
    return end_of_input();
  }
  if (lingering_) return read();
  arrived(length);
  // What this wake-up answers leaves in one write at its end.
  stream_->outbox().attend();
  end_turn(consume(input_.data(), length) && (length < input_.size() || read_more()));
}

/// What this turn of reading brought leaves, and where it is to go on the next begins.
void Connection::end_turn(bool go_on) {
  if (closed_) return;
  turn_ends();
  flush();
  if (go_on && !closed_) read();
}

void Connection::arrived(std::size_t bytes) {
  state_->metrics->add(Metrics::BYTES_IN, slot_.listener(), bytes);
  stream_->arrived(std::chrono::steady_clock::now());
}

/// Reads on what a full buffer promised, within this turn. False when reading is not to go on.
bool Connection::read_more() {
  for (std::size_t turn = 0; turn < bytes_a_turn;) {
    error_code error;
    const std::size_t length = bytes_->read_some(loop_->buffer(), Loop::buffer_size, error);
    // The next asynchronous read reports an error, after what came before it has been answered.
    if (error) return true;
    arrived(length);
    if (!consume(loop_->buffer(), length)) return false;
    if (length < Loop::buffer_size) return true;
    turn += length;
  }
  return true;
}

void Connection::pause(const char* data, std::size_t length) {
  leftover_.assign(data, length);
  paused_ = true;
}

void Connection::go_on() {
  paused_ = false;
  last_read_ = Loop::now();
  std::string bytes;
  bytes.swap(leftover_);
  end_turn(consume(bytes.data(), bytes.size()));
}

void Connection::resume() { post(&Connection::try_resume); }

void Connection::unlist() {
  JSON_RPC_Channel_Pool::instance()->remove(stream_->self());
  JSON_RPC_Channel_Map::instance()->remove(channel_);
}

void Connection::request_gone(const json_spirit::Value& id) noexcept {
  const JSON_RPC_Channel_var channel(weak_);
  if (channel.null()) return;
  static_cast<Stream_Channel&>(*channel).request_gone(id);
}

/// Later, on the loop, if the connection is still there: what waits in a loop's queue keeps none
/// alive.
void Connection::post(void (Connection::*operation)()) {
  asio::post(loop_->context(), [weak = weak_from_this(), operation] {
    const std::shared_ptr<Connection> self = weak.lock();
    if (self != nullptr) self->guarded([&] { ((*self).*operation)(); });
  });
}

void Connection::wake() { loop_->flush_soon(weak_from_this()); }

void Connection::close_soon(const char* reason) {
  asio::post(loop_->context(), [weak = weak_from_this(), reason] {
    if (const std::shared_ptr<Connection> self = weak.lock()) self->close(reason);
  });
}

/// Writes what there is until the stream takes no more. Then the outbox wakes nobody: on_writable()
/// goes on.
void Connection::flush() {
  guarded([this] {
    if (!write_waits_) write_out();
  });
}

void Connection::write_out() {
  while (fetch()) {
    if (!write()) break;
  }
  if (closed_) return;
  if (can_go_on()) resume();
  const bool done = (input_ended_ || stopped_reading_) && !owes_more();
  if (!done || lingering_ || stream_->outbox().owes()) return;
  bytes_->holds_output() ? wait_writable() : linger();
}

void Connection::wait_writable() {
  write_waits_ = true;
  bytes_->async_wait_writable(shared_from_this());
}

bool Connection::take(std::vector<Output_Piece>& batch) {
  return stream_->outbox().take(batch, batch_.buffer());
}

/// Whether there is something to write.
bool Connection::fetch() { return !batch_.empty() || take(batch_.refill()); }

/// Hands a system call's worth to the stream. False when it takes no more, or is gone.
bool Connection::write() {
  error_code error;
  const Output_Batch::Sent sent = batch_.write(*bytes_, error);
  last_write_ = Loop::now();
  state_->metrics->add(Metrics::BYTES_OUT, slot_.listener(), sent.bytes);
  stream_->outbox().sent(sent.bytes, sent.answers);
  if (would_block(error)) {
    wait_writable();
    return false;
  }
  if (error) close(nullptr);
  return !error;
}

void Connection::on_writable(const error_code& error) {
  write_waits_ = false;
  if (closed_) return;
  if (error) return close(nullptr);
  flush();
}

/// The peer is owed nothing. What it still sends is read and thrown away for a while: closing at
/// once would reset the connection and could cost it our last words.
void Connection::linger() {
  if (input_ended_ || abrupt()) return close(nullptr);
  bytes_->shutdown_send(state_->stopping);
  lingering_ = true;
  linger_until_ = Loop::now() + linger_time;
  read();
}

void Connection::drain() {
  if (closed_) return;
  for (const json_spirit::Value& id : stream_->outbox().awaited()) {
    stream_->answer_error(id, server_stopping, stopping_text);
  }
  give_up_owed();
  stopped_reading_ = true;
  flush();
}

bool Connection::idle_allowed() {
  return stream_->outbox().owes() || JSON_RPC_Notify_Manager::instance()->subscribed(weak_);
}

/// Whether the socket has what we wait for, although we have not been told: a handler may have held
/// the loop meanwhile, or nobody reads it now. Also when the peer has gone; with POLLRDHUP when it
/// sends no more, though what it has sent may not be read yet.
bool Connection::socket_ready(short events) {
  pollfd poll_set = {bytes_->descriptor(), events, 0};
  return ::poll(&poll_set, 1, 0) > 0;
}

/// Whether the peer has taken bytes that the kernel held for it. A socket counts as writable only
/// when a good part of its buffer is free: a slow reader takes longer for that than the stall time.
bool Connection::output_moved() {
  int held = 0;
  if (::ioctl(bytes_->descriptor(), SIOCOUTQ, &held) != 0) return false;
  return std::exchange(held_by_kernel_, held) > held;
}

void Connection::tick(Loop_Time now) {
  guarded([&] { check_time(now); });
}

void Connection::check_time(Loop_Time now) {
  if (lingering_) {
    if (now > linger_until_) close(nullptr);
    return;
  }
  // Without memory the loop could not be told when this was wanted.
  if (const char* const reason = stream_->close_reason()) return close(reason);
  flush();
  if (closed_) return;
  if (can_go_on()) resume();  // answers may be awaited since it was paused
  if (paused_ && socket_ready(POLLRDHUP)) unlist();
  if ((input_ended_ || stopped_reading_) && socket_ready(0)) return close(nullptr);
  check_progress(now);
  if (closed_ || now - std::max(last_read_, last_write_) <= state_->limits.idle_timeout) return;
  if (idle_allowed() || socket_ready(POLLIN)) {
    last_read_ = now;  // asked again after another idle time
  } else {
    close("it is idle");
  }
}

void Connection::check_progress(Loop_Time now) {
  if (write_waits_ && output_moved()) {
    last_write_ = now;
    stream_->outbox().sent(0, 0);  // whoever waits for room has more patience again
  }
  const bool stuck = write_waits_ && now - last_write_ > stream_->limits().stall_timeout;
  if (stuck && !socket_ready(POLLOUT)) return close("it takes no output");
  if (paused_ || input_ended_ || stopped_reading_) return;
  bytes_->tick();
  Loop_Time since = last_read_;
  if (expects(since) && now - since > state_->limits.stall_timeout && !socket_ready(POLLIN)) {
    stalled();
  }
}

void Connection::stalled() { close("it stopped in a message"); }

void Connection::closing(const char*) {}

void Connection::close(const char* reason) {
  if (closed_) return;
  closed_ = true;
  const std::shared_ptr<Connection> self = shared_from_this();
  const Log_Context context(label_.c_str());
  if (reason != nullptr) {
    VEXA_WARNING("Channel %C is closed: %C.\n", stream_->id().c_str(), reason);
  }
  if (bytes_ != nullptr) bytes_->close();
  closing(reason);
  stream_->closed();
  JSON_RPC_Notify_Manager::instance()->unsubscribe(stream_->self());
  unlist();
  ended();
  loop_->remove(this);
  stream_ = nullptr;
  channel_ = JSON_RPC_Channel_var();
}

Opened Connection::release() {
  return Opened{loop_, state_, std::move(slot_), std::move(bytes_), addresses_};
}

}  // namespace transport
