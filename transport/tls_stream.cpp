#include "transport/tls_stream.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/write.hpp>
#include <string>
#include <utility>

#include "transport/buffer_range.h"

namespace transport {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr std::size_t most_at_once = 64u << 10;

/// A peer that goes without saying so in TLS ends what it sends all the same: the messages tell
/// whether they are whole.
error_code plain(const error_code& error) {
  return error == asio::ssl::error::stream_truncated ? error_code(asio::error::eof) : error;
}

}  // namespace

struct Tls_Stream::State : std::enable_shared_from_this<State> {
  explicit State(std::unique_ptr<Stream> s) : stream(std::move(s)) {}

  void write();
  void written(const error_code& error);
  void shutdown();
  void ended(const error_code& error);
  void read_rest();

  const std::unique_ptr<Stream> stream;
  std::string output;  // being written, where `writing`
  bool writing = false;
  bool ends = false;             // shutdown_send() was called
  error_code failure;            // of a write: told with the next one
  std::shared_ptr<User> writer;  // waits for room
  std::shared_ptr<User> reader;  // waits for the end, after shutdown_send()
  char* data = nullptr;          // where it reads
  std::size_t size = 0;
  bool over = false;    // the end has come
  bool agreed = false;  // the peer has said so too
};

void Tls_Stream::State::write() {
  writing = true;
  asio::async_write(
      *stream, asio::buffer(output),
      [self = shared_from_this()](const error_code& error, std::size_t) { self->written(error); });
}

void Tls_Stream::State::written(const error_code& error) {
  writing = false;
  failure = error;
  output.clear();
  if (output.capacity() > most_at_once / 4) std::string().swap(output);
  const bool shut = ends;  // what follows may ask for that, and then sees to it
  if (const std::shared_ptr<User> user = std::exchange(writer, nullptr)) user->on_writable(error);
  if (shut && !writing) shutdown();
}

/// Says so to the peer, and waits until it has said the same.
void Tls_Stream::State::shutdown() {
  stream->async_shutdown(
      [self = shared_from_this()](const error_code& error) { self->ended(error); });
}

void Tls_Stream::State::ended(const error_code& error) {
  over = true;
  agreed = !error;
  if (reader != nullptr) read_rest();
}

/// Where the peer has not said that it ends: what still comes can be made out by nobody, but is
/// taken from the socket, since closing that with unread bytes could cost the peer our last words.
void Tls_Stream::State::read_rest() {
  const std::shared_ptr<User> user = std::exchange(reader, nullptr);
  if (agreed) return user->on_read(asio::error::eof, 0);
  stream->next_layer().async_read_some(
      asio::buffer(data, size),
      [self = shared_from_this(), user](const error_code& error, std::size_t length) {
        user->on_read(error, length);
      });
}

Tls_Stream::Tls_Stream(std::unique_ptr<Stream> stream)
    : state_(std::make_shared<State>(std::move(stream))) {}

Tls_Stream::~Tls_Stream() { close(); }

void Tls_Stream::async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) {
  if (state_->ends) {
    state_->reader = user;
    state_->data = data;
    state_->size = size;
    if (!state_->over) return;
    asio::post(state_->stream->get_executor(), [s = state_] {
      if (s->reader != nullptr) s->read_rest();
    });
    return;
  }
  state_->stream->async_read_some(
      asio::buffer(data, size), [self = state_, user](const error_code& error, std::size_t length) {
        user->on_read(plain(error), length);
      });
}

std::size_t Tls_Stream::read_some(char*, std::size_t, error_code& error) {
  error = asio::error::would_block;
  return 0;
}

std::size_t Tls_Stream::write_some(const asio::const_buffer* buffers, std::size_t count,
                                   error_code& error) {
  State& state = *state_;
  if (state.failure) {
    error = state.failure;
  } else if (state.writing) {
    error = asio::error::would_block;
  }
  if (error) return 0;
  for (const asio::const_buffer& buffer : Buffer_Range(buffers, count)) {
    const std::size_t room = most_at_once - state.output.size();
    state.output.append(static_cast<const char*>(buffer.data()), std::min(room, buffer.size()));
  }
  const std::size_t taken = state.output.size();
  if (taken > 0) state.write();
  return taken;
}

void Tls_Stream::async_wait_writable(const std::shared_ptr<User>& user) {
  if (state_->writing) {
    state_->writer = user;
    return;
  }
  asio::post(state_->stream->get_executor(),
             [user, error = state_->failure] { user->on_writable(error); });
}

bool Tls_Stream::holds_output() const { return state_->writing; }

void Tls_Stream::shutdown_send(bool) {
  if (std::exchange(state_->ends, true)) return;
  if (!state_->writing) state_->shutdown();
}

void Tls_Stream::close() {
  error_code ignored;
  state_->stream->lowest_layer().close(ignored);
  state_->reader = state_->writer = nullptr;
}

int Tls_Stream::descriptor() { return state_->stream->lowest_layer().native_handle(); }

}  // namespace transport
