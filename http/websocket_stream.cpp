#include "http/websocket_stream.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "http/memory_layer.h"
#include "http/websocket_upgrade.h"
#include "transport/loop.h"
#include "transport/stream_connection.h"

namespace http {

namespace asio = boost::asio;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;
using transport::Loop;
using transport::Loop_Time;
using transport::would_block;

namespace {

constexpr std::size_t key_length = 24;  // 16 bytes in base64

constexpr std::size_t gathered_most = 16u << 10;  // bytes of answers that leave together

typedef boost::beast::http::request<boost::beast::http::empty_body> Beast_Request;

Beast_Request beast_request(const CGI_Request& request) {
  Beast_Request made(boost::beast::http::verb::get, "/", 10 + request.minor_version());
  for (const HTTP_Headers::Field& field : request.headers()) {
    const std::string_view title = field.title();
    made.insert(boost::beast::string_view(title.data(), title.size()), field.value);
  }
  return made;
}

/// Whether WebSocket has ended, and not the stream below: bytes that still come are then read and
/// thrown away by whoever closes.
bool is_protocol_end(const error_code& error) {
  return error && error.category() == error_code(websocket::error::closed).category();
}

/// The last bytes of a message that comes in parts. Beast checks its UTF-8, but not that it is
/// whole when the last frame is empty.
class Text_Tail {
public:
  void add(const char* data, std::size_t length) {
    const std::size_t added = std::min(length, most);
    bytes_.append(data + length - added, added);
    if (bytes_.size() > most) bytes_.erase(0, bytes_.size() - most);
  }
  void clear() { bytes_.clear(); }

  /// Whether they end inside of a character.
  bool breaks_off() const {
    std::size_t begun = 1;  // bytes of the last character, from its first on
    while (begun <= bytes_.size() && (bytes_[bytes_.size() - begun] & 0xc0) == 0x80) ++begun;
    if (begun > bytes_.size()) return false;
    const auto first = static_cast<unsigned char>(bytes_[bytes_.size() - begun]);
    const std::size_t whole = first < 0xc0 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    return begun < whole;
  }

private:
  static constexpr std::size_t most = 3;  // of a character that is not whole
  std::string bytes_;
};

}  // namespace

bool is_websocket_handshake(const CGI_Request& request) {
  const char* const version = request.headers().get(websocket_version_field);
  const char* const key = request.headers().get("Sec-WebSocket-Key");
  return key != nullptr && std::strlen(key) == key_length && version != nullptr &&
         std::string_view(version) == websocket_version &&
         websocket::is_upgrade(beast_request(request));
}

void serve_websocket(transport::Opened opened, const CGI_Request& request,
                     const std::string& leftover,
                     const std::shared_ptr<const transport::Method_Filter>& filter) {
  const transport::Limits& limits = opened.state->limits;
  auto stream = std::make_unique<Websocket_Stream>(std::move(opened.stream),
                                                   opened.loop->context().get_executor(),
                                                   limits.max_message, limits.stall_timeout);
  error_code error;
  stream->accept(request, leftover, error);
  if (error) return;  // the peer has gone
  opened.stream = std::move(stream);
  std::make_shared<transport::Stream_Connection>(std::move(opened))
      ->start(transport::Stream_Channel::WEBSOCKET, transport::Framing::MESSAGES, filter);
}

/// Reads for Beast, and for whoever reads after it has ended.
///
/// Messages that have come together are read one after the other, from Beast's buffer. What they
/// are answered leaves when that is used up, in one system call, or when nobody reads on.
struct Websocket_Stream::State final : Memory_Layer::Reader, std::enable_shared_from_this<State> {
  State(std::unique_ptr<transport::Byte_Stream> b, const asio::io_context::executor_type& executor,
        std::chrono::milliseconds s)
      : below(std::move(b)), socket(std::in_place, executor), silence(s), heard(Loop::now()) {}

  Memory_Layer& layer() { return socket->next_layer(); }

  void on_read(const error_code& error, std::size_t length) override;
  void on_writable(const error_code& error) override;
  void wants_more() override { push_soon(); }
  void was_read(const char* data, const error_code& error, std::size_t length);
  void was_closed();
  void forget();
  void end(websocket::close_code code);
  void end_below();
  void push(error_code& error);
  void push_soon();
  void wait();
  void fail_held(const error_code& error);

  const std::unique_ptr<transport::Byte_Stream> below;
  std::optional<websocket::stream<Memory_Layer, false>> socket;  // until forget()
  bool closed = false;
  const std::chrono::milliseconds silence;
  Loop_Time heard;               // from the peer
  bool pinged = false;           // since then
  std::size_t pushed = 0;        // how much of the gathered output has been handed on
  bool waits = false;            // for the stream below to take more
  bool ending = false;           // a close frame has been sent, or will be
  bool closing = false;          // by Beast, which reads for it
  bool input_ended = false;      // below; Beast has not been told
  bool ended = false;            // Beast reads no more
  bool ends_below = false;       // when all that is to leave has left
  bool message_ended = false;    // by what was last read
  Text_Tail tail;                // of the message that is being read
  bool in_turn = false;          // its reader looks at what was read
  std::shared_ptr<User> reader;  // of what is pending
  std::shared_ptr<User> writer;  // waits for room
};

void Websocket_Stream::State::on_read(const error_code& error, std::size_t length) {
  layer().reading(false);
  if (closed) return forget();
  heard = Loop::now();
  pinged = false;
  if (ended) {
    if (const std::shared_ptr<User> user = std::exchange(reader, nullptr)) {
      user->on_read(error, length);
    }
    return;
  }
  // A peer that only stops sending is still owed its answers, and Beast writes nothing any more
  // once it knows of the end: it goes on waiting, until close().
  input_ended = error == asio::error::eof && !ending;
  if (input_ended) {
    if (const std::shared_ptr<User> user = std::exchange(reader, nullptr)) user->on_read(error, 0);
    return;
  }
  layer().read(error, length);
}

/// After the close, and when nobody writes into a buffer any more: Beast goes with all that it
/// keeps for operations which wait for each other, or for a read that is held back, and so does the
/// reader. They would keep this state.
void Websocket_Stream::State::forget() {
  const std::shared_ptr<User> last = std::move(reader);  // it may own this
  const std::shared_ptr<State> self = shared_from_this();
  socket.reset();
}

void Websocket_Stream::State::was_read(const char* data, const error_code& error,
                                       std::size_t length) {
  if (closed) return;
  const std::shared_ptr<User> user = std::exchange(reader, nullptr);
  const bool binary = !error && !ending && !socket->got_text();
  if (binary) end(websocket::close_code::unknown_data);
  const bool whole = !error && socket->is_message_done();
  tail.add(data, length);
  const bool broken = whole && !binary && tail.breaks_off();
  if (broken) end(websocket::close_code::bad_payload);
  if (whole) tail.clear();
  const bool refused = binary || broken;
  ended = static_cast<bool>(error);
  message_ended = whole && !refused;
  if (error || refused || user == nullptr) push_soon();
  if (user == nullptr) return;
  if (refused || is_protocol_end(error)) return user->on_read(asio::error::shut_down, 0);
  if (error) return user->on_read(error, length);
  in_turn = true;
  user->on_read(error, length);
  in_turn = false;
  if (reader == nullptr || ended) push_soon();
}

void Websocket_Stream::State::end(websocket::close_code code) {
  if (std::exchange(ending, true) || !socket->is_open()) return;
  closing = true;
  socket->async_close(code, [self = shared_from_this()](const error_code&) { self->was_closed(); });
  push_soon();
}

void Websocket_Stream::State::was_closed() {
  if (closed) return;
  ended = true;
  push_soon();
  const std::shared_ptr<User> user = std::exchange(reader, nullptr);
  if (user != nullptr) user->on_read(asio::error::shut_down, 0);
}

/// Nothing more is said in either direction. Clients wait for the end of the stream below: it is
/// the server's to end (RFC 6455 section 7.1.1).
void Websocket_Stream::State::end_below() {
  ends_below = true;
  if (waits) return;
  error_code error;
  push(error);
  if (would_block(error)) wait();
}

void Websocket_Stream::State::push(error_code& error) {
  std::string& output = layer().output;
  while (pushed < output.size() && !error) {
    const asio::const_buffer rest = asio::buffer(output) + pushed;
    pushed += below->write_some(&rest, 1, error);
  }
  // The rest is moved only where it is the smaller part.
  if (pushed >= output.size() - pushed) output.erase(0, std::exchange(pushed, 0));
  layer().read_on();
  if (output.empty() && output.capacity() > Memory_Layer::output_most / 4)
    std::string().swap(output);
  if (output.empty() && std::exchange(ends_below, false)) below->shutdown_send(false);
}

/// Where nobody else sees to it.
void Websocket_Stream::State::push_soon() {
  if (closed || waits || layer().output.empty()) return;
  error_code error;
  push(error);
  if (would_block(error)) return wait();
  if (error) fail_held(error);
}

/// The stream below has failed. A read of it would tell so; where that is held back, this does:
/// later, for whoever is told closes.
void Websocket_Stream::State::fail_held(const error_code& error) {
  if (!layer().held()) return;
  asio::post(socket->get_executor(), [self = shared_from_this(), error] {
    if (!self->closed && self->layer().held()) self->on_read(error, 0);
  });
}

void Websocket_Stream::State::wait() {
  if (!std::exchange(waits, true)) below->async_wait_writable(shared_from_this());
}

void Websocket_Stream::State::on_writable(const error_code& error) {
  waits = false;
  if (closed) return;
  error_code failed = error;
  if (!failed) push(failed);
  if (would_block(failed)) return wait();
  if (const std::shared_ptr<User> user = std::exchange(writer, nullptr)) user->on_writable(failed);
  if (failed && !closed) fail_held(failed);
}

Websocket_Stream::Websocket_Stream(std::unique_ptr<transport::Byte_Stream> below,
                                   const asio::io_context::executor_type& executor,
                                   std::size_t max_message, std::chrono::milliseconds silence)
    : state_(std::make_shared<State>(std::move(below), executor, silence)) {
  state_->layer().below = state_->below.get();
  state_->layer().reader = state_;
  state_->socket->read_message_max(max_message);
  state_->socket->auto_fragment(false);
  state_->socket->text(true);
}

Websocket_Stream::~Websocket_Stream() { close(); }

void Websocket_Stream::accept(const CGI_Request& request, const std::string& leftover,
                              error_code& error) {
  state_->layer().ahead = leftover;
  state_->socket->set_option(websocket::stream_base::decorator(
      [](websocket::response_type& r) { r.erase(boost::beast::http::field::server); }));
  state_->socket->accept(beast_request(request), error);
  if (!error) state_->push_soon();
}

void Websocket_Stream::async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) {
  state_->reader = user;
  if (state_->ended) {
    state_->layer().reading(true);
    return state_->below->async_read(data, size, state_);
  }
  // A read that fails waits in Beast for the close, and the close for the read.
  if (state_->closing) return;
  state_->socket->async_read_some(asio::buffer(data, size),
                                  [self = state_, data](const error_code& error, std::size_t n) {
                                    self->was_read(data, error, n);
                                  });
}

std::size_t Websocket_Stream::read_some(char*, std::size_t, error_code& error) {
  error = asio::error::would_block;
  return 0;
}

std::size_t Websocket_Stream::write_some(const asio::const_buffer*, std::size_t,
                                         error_code& error) {
  error = asio::error::operation_not_supported;
  return 0;
}

void Websocket_Stream::write_part(std::string_view text, bool last, error_code& error) {
  if (state_->layer().full()) {
    error = asio::error::would_block;
  } else {
    state_->socket->write_some(last, asio::buffer(text.data(), text.size()), error);
  }
}

void Websocket_Stream::push(error_code& error) {
  // Who writes much, or to a peer that takes nothing, must learn of it.
  const bool little = state_->layer().output.size() < gathered_most && !state_->waits;
  if (!state_->in_turn || !little) state_->push(error);
}

void Websocket_Stream::async_wait_writable(const std::shared_ptr<User>& user) {
  state_->writer = user;
  state_->wait();
}

bool Websocket_Stream::take_message_end() { return std::exchange(state_->message_ended, false); }

void Websocket_Stream::shutdown_send(bool going_away) {
  if (state_->ended) return state_->end_below();
  state_->end(going_away ? websocket::close_code::going_away : websocket::close_code::normal);
}

void Websocket_Stream::close() {
  if (state_->closed) return;
  state_->push_soon();
  state_->closed = true;
  state_->writer = nullptr;
  state_->below->close();
  if (!state_->layer().reading()) state_->forget();
}

/// A peer that says nothing is asked whether it is still there.
void Websocket_Stream::tick() {
  const Loop_Time now = Loop::now();
  if (now - state_->heard <= state_->silence || !state_->socket->is_open()) return;
  if (std::exchange(state_->pinged, true)) {
    state_->below->close();
    return state_->fail_held(asio::error::timed_out);
  }
  state_->heard = now;
  error_code ignored;
  state_->socket->ping(websocket::ping_data(), ignored);
  state_->push_soon();
}

bool Websocket_Stream::holds_output() const {
  return !state_->layer().output.empty() || state_->below->holds_output();
}

int Websocket_Stream::descriptor() { return state_->below->descriptor(); }

bool Websocket_Stream::is_tls() const { return state_->below->is_tls(); }

}  // namespace http
