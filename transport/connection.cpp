#include "transport/connection.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_channel_pool.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_request_map.h"
#include "transport/current_message.h"
#include "transport/log_context.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr std::size_t bytes_a_turn = 256u << 10;  // then the loop's other connections have theirs
constexpr std::size_t pieces_a_write = 64;
constexpr std::size_t kept_pieces = 16;  // room that an idle connection may keep
constexpr std::chrono::seconds linger_time{2};
constexpr std::chrono::seconds slow_handler{1};
constexpr std::chrono::hours without_end{24 * 365};

constexpr int server_busy = -32000;
constexpr int server_stopping = -32001;
const char* const busy_text = "Server busy";
const char* const stopping_text = "Server is stopping";

std::string next_id() {
  static std::atomic<unsigned long long> last{0};
  return std::to_string(++last);
}

bool would_block(const error_code& error) {
  return error == asio::error::would_block || error == asio::error::try_again;
}

/// The buffers of one write, as Asio wants them.
struct Buffer_Range {
  typedef asio::const_buffer value_type;
  typedef const asio::const_buffer* const_iterator;

  const_iterator begin() const { return first; }
  const_iterator end() const { return last; }

  const_iterator first;
  const_iterator last;
};

bool starts_with(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

/// Whether a notification tells of this process itself: a peer must not make that up for others.
bool is_made_up(const JSON_RPC_Object& notification) {
  const std::string& method = static_cast<const JSON_RPC_Request&>(notification).method;
  return (starts_with(method, "channel.") || starts_with(method, "rpc.")) &&
         JSON_RPC_Request_Map::instance()->find(method) == nullptr;
}

}  // namespace

Connection::Connection(std::shared_ptr<Loop> loop, std::shared_ptr<Server_State> state,
                       Socket socket)
    : loop_(std::move(loop)), state_(std::move(state)), socket_(std::move(socket)) {
  ++state_->connections;
}

Connection::~Connection() {
  --state_->connections;
  if (state_->connection_closed) state_->connection_closed();
}

void Connection::start(const Stream_Channel::Addresses& addresses) {
  begin(addresses, Link_Options());
}

void Connection::start(const Stream_Channel::Addresses& addresses, const Link_Options& options,
                       const std::weak_ptr<Connection_Watcher>& watcher) {
  dialed_ = true;
  abrupt_ = options.abrupt;
  watcher_ = watcher;
  begin(addresses, options);
}

void Connection::begin(const Stream_Channel::Addresses& addresses, const Link_Options& options) {
  Limits limits = state_->limits;
  if (options.patient) limits.stall_timeout = without_end;
  std::unique_ptr<Stream_Channel> stream =
      std::make_unique<Stream_Channel>(limits, addresses, weak_from_this());
  channel_ = JSON_RPC_Channel_var(stream.get());
  stream_ = stream.release();
  weak_ = JSON_RPC_Channel_ptr(channel_);
  stream_->self(weak_);
  stream_->type(Stream_Channel::STREAM);
  stream_->id(next_id());
  stream_->framing(options.framing);
  label_ = "channel " + stream_->id();
  inbound_.reset(new Inbound(*stream_, *this, !dialed_));
  last_read_ = last_write_ = Loop::now();
  loop_->add(shared_from_this());
  guarded([this] {
    JSON_RPC_Channel_Map::instance()->insert(channel_);
    read();
  });
}

/// Reads on, unless that is under way: a connection that is drained begins to linger in mid-read.
void Connection::read() {
  if (std::exchange(reading_, true)) return;
  socket_.async_read_some(asio::buffer(input_),
                          [self = shared_from_this()](const error_code& error, std::size_t length) {
                            self->on_read(error, length);
                          });
}

/// Runs a part of the connection's work. Without memory, or after any other exception, a connection
/// cannot go on.
template <typename Operation>
void Connection::guarded(Operation operation) {
  if (closed_) return;
  const Log_Context context(label_.c_str());
  try {
    operation();
  } catch (const std::bad_alloc&) {
    close("there is no memory for it");
  } catch (const std::exception& error) {
    VEXA_ERROR("A connection failed: %C\n", error.what());
    close("it failed");
  }
}

void Connection::on_read(const error_code& error, std::size_t length) {
  reading_ = false;
  guarded([&] { take_input(error, length); });
}

void Connection::take_input(const error_code& error, std::size_t length) {
  last_read_ = Loop::now();
  if (error) {
    if (error != asio::error::eof || lingering_) return close(nullptr);
    return end_of_input();
  }
  if (lingering_) return read();
  // What this wake-up answers leaves in one write at its end.
  stream_->outbox().attend();
  end_turn(consume(input_.data(), length) && (length < input_.size() || read_more()));
}

/// What this turn of reading brought leaves, and where it is to go on the next begins.
void Connection::end_turn(bool go_on) {
  if (closed_) return;
  inbound_->pass_on_relay();
  flush();
  if (go_on && !closed_) read();
}

/// Reads on what a full buffer promised, within this turn. False when reading is not to go on.
bool Connection::read_more() {
  for (std::size_t turn = 0; turn < bytes_a_turn;) {
    error_code error;
    const std::size_t length =
        socket_.read_some(asio::buffer(loop_->buffer(), Loop::buffer_size), error);
    if (would_block(error)) return true;
    if (error) {
      // The next asynchronous read reports it, after what came before it has been answered.
      return true;
    }
    if (!consume(loop_->buffer(), length)) return false;
    if (length < Loop::buffer_size) return true;
    turn += length;
  }
  return true;
}

/// Gives bytes to the messages they belong to. False when reading is not to go on now.
bool Connection::consume(const char* data, std::size_t length) {
  std::size_t used;
  switch (inbound_->feed(data, length, used)) {
    case Inbound::GO_ON:
      paused_ = relay_waits_ = inbound_->relay_waits(weak_from_this());
      return !paused_;
    case Inbound::PAUSE:
      leftover_.assign(data + used, length - used);
      paused_ = true;
      relay_waits_ = false;
      return false;
    case Inbound::STOP:
      no_more_answers("it cannot be understood");
      stopped_reading_ = true;
      return false;
  }
  return false;
}

void Connection::resume() { post(&Connection::try_resume); }

/// Where neither the channel owes too much nor its relay must wait any longer: what was parked and
/// what was left over first, then the socket.
void Connection::try_resume() {
  guarded([this] {
    stream_->outbox().attend();
    dispatch_parked();
    if (paused_) relay_waits_ = inbound_->relay_waits(weak_from_this());
    if (paused_ && !relay_waits_ && !overloaded()) return take_leftover();
    flush();
  });
}

void Connection::take_leftover() {
  paused_ = false;
  last_read_ = Loop::now();
  std::string bytes;
  bytes.swap(leftover_);
  end_turn(consume(bytes.data(), bytes.size()));
}

void Connection::end_of_input() {
  input_ended_ = true;
  if (dialed_) return no_more_answers(nullptr);
  stream_->outbox().attend();
  inbound_->end();
  no_more_answers(nullptr);
  flush();
}

/// The peer says nothing that would be understood any more. It is still sent what it is owed,
/// unless this end opened the connection and can open another: that is closed.
void Connection::no_more_answers(const char* reason) {
  if (dialed_) {
    flush();
    return close(reason);
  }
  unlist();  // first: whoever is told that the agent has gone finds its id free
  stream_->no_more_answers();
}

/// Nobody else finds the channel any more; an agent's id is free.
void Connection::unlist() {
  JSON_RPC_Channel_Pool::instance()->remove(stream_->self());
  JSON_RPC_Channel_Map::instance()->remove(channel_);
}

/// While this end awaits answers of the peer, requests that do not fit are refused rather than left
/// unread: so many of them, and until as much again was taken by notifications, which cannot be.
bool Connection::overloaded() const {
  const Limits& limits = state_->limits;
  return parked_full() && (refused_ >= limits.max_pending || parked_bytes_ / 2 > limits.max_queue ||
                           !stream_->awaits_answers());
}

bool Connection::parked_full() const { return parked_bytes_ > state_->limits.max_queue; }

/// Whether the channel owes so much that no further request is begun. What is parked awaits an
/// answer too, but is not in work.
bool Connection::busy() const {
  const Limits& limits = state_->limits;
  return stream_->outbox().overloaded(limits.queue_mark(), limits.max_pending + parked_requests_);
}

/// Whether bytes that left, or an answer that was given, made room for what waits. A relay is
/// resumed by whom it waits for.
bool Connection::can_go_on() const {
  return (paused_ && !relay_waits_ && !overloaded()) || (!parked_.empty() && !busy());
}

void Connection::message(const JSON_RPC_Object_var& object, std::size_t bytes) {
  if (object->type == JSON_RPC_Object::TYPE_NOTIFY) {
    if (is_made_up(*object)) return;
    if (!parked_.empty()) return park(object, bytes);
  } else if (object->type == JSON_RPC_Object::TYPE_REQUEST) {
    const bool wait = !parked_.empty() || busy();
    stream_->outbox().await(object->id);
    static_cast<Owed_Request&>(*object).owe(weak_from_this());
    if (wait && parked_full()) return refuse(object->id);
    if (wait) return park(object, bytes);
  }
  dispatch(object);
}

void Connection::refuse(const json_spirit::Value& id) {
  ++refused_;
  stream_->answer_error(id, server_busy, busy_text);
}

void Connection::park(const JSON_RPC_Object_var& object, std::size_t bytes) {
  parked_.push_back({object, bytes + sizeof(Owed_Request)});
  parked_bytes_ += parked_.back().bytes;
  if (object->type == JSON_RPC_Object::TYPE_REQUEST) ++parked_requests_;
}

void Connection::dispatch_parked() {
  while (!parked_.empty() && !busy()) {
    const Parked next = std::move(parked_.front());
    parked_.pop_front();
    parked_bytes_ -= next.bytes;
    if (next.object->type == JSON_RPC_Object::TYPE_REQUEST) --parked_requests_;
    dispatch(next.object);
  }
  if (!parked_full()) refused_ = 0;
}

void Connection::dispatch(const JSON_RPC_Object_var& object) {
  const bool request = object->type == JSON_RPC_Object::TYPE_REQUEST;
  const bool call = request || object->type == JSON_RPC_Object::TYPE_NOTIFY;
  if (request && state_->stopping) {
    stream_->answer_error(object->id, server_stopping, stopping_text);
    return;
  }
  const Current_Message current(stream_, object.get());
  const Loop_Time begin = Loop::now();
  errno = 0;
  const int result = call ? JSON_RPC_Dispatcher::instance()->dispatch(stream_->self(), object)
                          : stream_->answered(object);
  const int error = errno;
  const Loop_Time end = Loop::now();
  if (end - begin > slow_handler) {
    VEXA_WARNING("The handler of '%C' held its loop for %d ms.\n",
                 call ? static_cast<const JSON_RPC_Request&>(*object).method.c_str() : "an answer",
                 static_cast<int>((end - begin) / std::chrono::milliseconds(1)));
  }
  if (result != -1 || !request) return;
  if (error == EWOULDBLOCK) {
    stream_->answer_error(object->id, server_busy, busy_text);
  } else {
    stream_->answer_error(object->id, JSON_RPC_INTERNAL_ERROR, nullptr);
  }
}

void Connection::request_gone(const json_spirit::Value& id) noexcept {
  const JSON_RPC_Channel_var channel = JSON_RPC_Channel::strong(weak_);
  if (channel.null()) return;
  static_cast<Stream_Channel&>(*channel).request_gone(id);
}

/// Later, on the loop, if the connection is still there: what waits in a loop's queue keeps none
/// alive.
void Connection::post(void (Connection::*operation)()) {
  asio::post(loop_->context(), [weak = weak_from_this(), operation] {
    if (const std::shared_ptr<Connection> self = weak.lock()) ((*self).*operation)();
  });
}

void Connection::wake() { post(&Connection::flush); }

void Connection::close_soon(const char* reason) {
  asio::post(loop_->context(), [weak = weak_from_this(), reason] {
    if (const std::shared_ptr<Connection> self = weak.lock()) self->close(reason);
  });
}

/// Writes what there is until the socket takes no more. Then the outbox wakes nobody: on_writable()
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
  const bool done = (input_ended_ || stopped_reading_) && parked_.empty();
  if (done && !lingering_ && !stream_->outbox().owes()) linger();
}

/// Whether there is something to write.
bool Connection::fetch() {
  if (batch_piece_ < batch_.size()) return true;
  batch_.clear();
  if (batch_.capacity() > kept_pieces) std::vector<Output_Piece>().swap(batch_);
  batch_piece_ = batch_byte_ = 0;
  return stream_->outbox().take(batch_);
}

/// One system call. False when the socket takes no more, or is gone.
bool Connection::write() {
  std::array<asio::const_buffer, pieces_a_write> buffers;
  std::size_t count = 0;
  for (std::size_t i = batch_piece_; i < batch_.size() && count < buffers.size(); ++i) {
    std::string_view text = batch_[i].text();
    if (i == batch_piece_) text.remove_prefix(batch_byte_);
    buffers[count++] = asio::const_buffer(text.data(), text.size());
  }
  error_code error;
  std::size_t written =
      socket_.write_some(Buffer_Range{buffers.data(), buffers.data() + count}, error);
  last_write_ = Loop::now();
  if (would_block(error)) {
    write_waits_ = true;
    socket_.async_wait(Socket::wait_write,
                       [self = shared_from_this()](const error_code& e) { self->on_writable(e); });
    return false;
  }
  if (error) {
    close(nullptr);
    return false;
  }
  std::size_t answers = 0;
  std::size_t whole = written + batch_byte_;  // bytes in whole pieces, and then of the next
  for (; batch_piece_ < batch_.size() && whole >= batch_[batch_piece_].text().size();
       ++batch_piece_) {
    whole -= batch_[batch_piece_].text().size();
    answers += batch_[batch_piece_].answers;
    batch_[batch_piece_] = Output_Piece();
  }
  batch_byte_ = whole;
  stream_->outbox().sent(written, answers);
  return true;
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
  if (input_ended_ || abrupt_) return close(nullptr);
  error_code ignored;
  socket_.shutdown(Socket::shutdown_send, ignored);
  lingering_ = true;
  linger_until_ = Loop::now() + linger_time;
  read();
}

void Connection::drain() {
  if (closed_) return;
  for (const json_spirit::Value& id : stream_->outbox().awaited()) {
    stream_->answer_error(id, server_stopping, stopping_text);
  }
  parked_.clear();
  parked_bytes_ = parked_requests_ = 0;
  stopped_reading_ = true;
  flush();
}

bool Connection::idle_allowed() {
  stream_->forget_given_up_calls();
  return dialed_ || stream_->type() == Stream_Channel::AGENT || stream_->outbox().owes() ||
         stream_->awaits_answers() ||
         JSON_RPC_Notify_Manager::instance()->subscribed(stream_->self());
}

/// Whether the socket has what we wait for, although we have not been told: a handler may have held
/// the loop meanwhile, or nobody reads it now. Also when the peer has gone; with POLLRDHUP when it
/// sends no more, though what it has sent may not be read yet.
bool Connection::socket_ready(short events) {
  pollfd poll_set = {socket_.native_handle(), events, 0};
  return ::poll(&poll_set, 1, 0) > 0;
}

/// Whether the peer has taken bytes that the kernel held for it. A socket counts as writable only
/// when a good part of its buffer is free: a slow reader takes longer for that than the stall time.
bool Connection::output_moved() {
  int held = 0;
  if (::ioctl(socket_.native_handle(), SIOCOUTQ, &held) != 0) return false;
  return std::exchange(held_by_kernel_, held) > held;
}

void Connection::tick(Loop_Time now) {
  guarded([&] { check_time(now); });
}

void Connection::check_time(Loop_Time now) {
  const Limits& limits = state_->limits;
  if (lingering_) {
    if (now > linger_until_) close(nullptr);
    return;
  }
  if (can_go_on()) resume();  // answers may be awaited since it was paused
  if (paused_ && socket_ready(POLLRDHUP)) unlist();
  if ((input_ended_ || stopped_reading_) && socket_ready(0)) return close(nullptr);
  if (write_waits_ && output_moved()) {
    last_write_ = now;
    stream_->outbox().sent(0, 0);  // whoever waits for room has more patience again
  }
  const bool stalled = write_waits_ && now - last_write_ > stream_->limits().stall_timeout;
  if (stalled && !socket_ready(POLLOUT)) return close("it takes no output");
  const bool expects = !paused_ && !input_ended_ && !stopped_reading_ && inbound_->in_message();
  if (expects && now - last_read_ > limits.stall_timeout && !socket_ready(POLLIN)) {
    return close("it stopped in a message");
  }
  if (now - std::max(last_read_, last_write_) <= limits.idle_timeout) return;
  if (idle_allowed() || socket_ready(POLLIN)) {
    last_read_ = now;  // asked again after another idle time
  } else {
    close("it is idle");
  }
}

void Connection::tell(Connection_Watcher& watcher, const char* reason) {
  try {
    watcher.connection_closed(reason);
  } catch (...) {
    VEXA_ERROR("The end of a connection could not be told: %C\n", vexa::exception_text());
  }
}

void Connection::close(const char* reason) {
  if (closed_) return;
  closed_ = true;
  const std::shared_ptr<Connection> self = shared_from_this();
  const Log_Context context(label_.c_str());
  if (reason != nullptr) {
    VEXA_WARNING("Channel %C is closed: %C.\n", stream_->id().c_str(), reason);
  }
  error_code ignored;
  socket_.close(ignored);
  if (inbound_ != nullptr) inbound_->abandon_relay();
  if (const std::shared_ptr<Connection_Watcher> watcher = watcher_.lock()) {
    tell(*watcher, reason);  // before the calls end: who is told that they did can look
  }
  stream_->closed();
  parked_.clear();
  JSON_RPC_Notify_Manager::instance()->unsubscribe(stream_->self());
  unlist();
  inbound_.reset();
  loop_->remove(this);
  stream_ = nullptr;
  channel_ = JSON_RPC_Channel::none();
}

}  // namespace transport
