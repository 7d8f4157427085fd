// Whatever comes over a WebSocket, and however it is cut: what is delivered are whole messages of
// UTF-8, within the limit and the same for each cut; what is sent are well-formed frames, with
// nothing behind the close.
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <utility>

#include "fuzz/input.h"
#include "http/websocket_stream.h"
#include "vexa/utf8.h"

namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using transport::Byte_Stream;

constexpr std::size_t max_message = 300;

bool is_utf8(const std::string& text) {
  return vexa::utf8_valid_prefix(text.data(), text.size()) == text.size();
}

/// The stream below: gives the pieces and then the end, and takes a few bytes at a time.
class Scripted_Stream final : public Byte_Stream {
public:
  struct State {
    asio::io_context loop;
    Fuzz_Input::Pieces pieces;
    std::size_t piece = 0;
    std::size_t at = 0;
    std::size_t room = ~std::size_t{0};  // that a write finds; it comes back after a wait
    std::size_t left = 0;                // of it
    std::string output;
    bool shut = false;
    bool closed = false;
  };
  explicit Scripted_Stream(State& state) : state_(state) {}

  void async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) override {
    FUZZ_CHECK(size > 0);
    asio::post(state_.loop, [this, data, size, user, &state = state_] {
      if (state.closed) return user->on_read(asio::error::operation_aborted, 0);
      if (state.piece == state.pieces.size()) return user->on_read(asio::error::eof, 0);
      user->on_read(error_code(), take(data, size));
    });
  }
  std::size_t read_some(char*, std::size_t, error_code& error) override {
    error = asio::error::would_block;
    return 0;
  }
  std::size_t write_some(const asio::const_buffer* buffers, std::size_t count,
                         error_code& error) override {
    FUZZ_CHECK(!state_.shut && !state_.closed && count == 1);
    const std::size_t taken = std::min(state_.left, buffers->size());
    if (taken == 0) error = asio::error::would_block;
    state_.output.append(static_cast<const char*>(buffers->data()), taken);
    state_.left -= taken;
    return taken;
  }
  void async_wait_writable(const std::shared_ptr<User>& user) override {
    asio::post(state_.loop, [user, &state = state_] {
      state.left = state.room;
      user->on_writable(state.closed ? error_code(asio::error::operation_aborted) : error_code());
    });
  }
  void shutdown_send(bool) override { state_.shut = true; }
  void close() override { state_.closed = true; }
  int descriptor() override { return -1; }

private:
  std::size_t take(char* data, std::size_t size) {
    const std::vector<char>& piece = state_.pieces[state_.piece];
    const std::size_t got = std::min(size, piece.size() - state_.at);
    std::copy_n(piece.begin() + state_.at, got, data);
    state_.at += got;
    if (state_.at < piece.size()) return got;
    ++state_.piece;
    state_.at = 0;
    return got;
  }

  State& state_;
};

/// Reads as a connection does, and sends back each message in two parts.
class Echo final : public Byte_Stream::User, public std::enable_shared_from_this<Echo> {
public:
  explicit Echo(std::unique_ptr<http::Websocket_Stream> stream) : stream_(std::move(stream)) {}

  void start() { read(); }
  void on_read(const error_code& error, std::size_t length) override {
    FUZZ_CHECK(std::exchange(reading_, false));
    FUZZ_CHECK(length <= sizeof buffer_ && (length == 0 || !error));
    if (error == asio::error::shut_down && !lingers_) {
      lingers_ = true;
      stream_->shutdown_send(false);
      return read();
    }
    if (error) return close();
    if (!lingers_) arrived(length);
    read();
  }
  void on_writable(const error_code& error) override {
    waits_ = false;
    if (error) return close();
    if (stream_ != nullptr) push();
  }
  /// The messages, a line each.
  const std::string& messages() const { return messages_; }
  bool closed() const { return stream_ == nullptr; }

private:
  void read() {
    if (stream_ == nullptr) return;
    reading_ = true;
    stream_->async_read(buffer_, sizeof buffer_, shared_from_this());
  }
  void arrived(std::size_t length) {
    message_.append(buffer_, length);
    FUZZ_CHECK(message_.size() <= max_message);
    if (!stream_->take_message_end()) return;
    FUZZ_CHECK(is_utf8(message_));
    messages_ += message_ + "\n";
    const std::string_view text = message_;
    send(text.substr(0, text.size() / 2), false);
    send(text.substr(text.size() / 2), true);
    message_.clear();
  }
  void send(std::string_view part, bool last) {
    error_code error;
    if (stream_ != nullptr) stream_->write_part(part, last, error);
    FUZZ_CHECK(error != asio::error::would_block);  // there is room for all of an input
    if (error) return close();
    if (!waits_) push();
  }
  void push() {
    error_code error;
    stream_->push(error);
    if (error == asio::error::would_block) {
      waits_ = true;
      stream_->async_wait_writable(shared_from_this());
    } else if (error) {
      close();
    }
  }
  void close() { stream_.reset(); }

  std::unique_ptr<http::Websocket_Stream> stream_;  // until it is closed
  char buffer_[64];
  bool reading_ = false;
  bool waits_ = false;
  bool lingers_ = false;
  std::string message_;
  std::string messages_;
};

/// Takes the frames apart that were sent, and gives their kinds.
std::string check_frames(std::string_view output) {
  std::string kinds, text;
  bool in_message = false;
  while (!output.empty()) {
    FUZZ_CHECK(output.size() >= 2 && kinds.find('8') == std::string::npos);
    const unsigned char first = output[0], second = output[1];
    std::size_t size = second, head = 2;
    if (size == 126) {
      FUZZ_CHECK(output.size() >= 4);
      size = static_cast<unsigned char>(output[2]) << 8 | static_cast<unsigned char>(output[3]);
      FUZZ_CHECK(size >= 126);
      head = 4;
    }
    FUZZ_CHECK(second < 127 && output.size() >= head + size);
    const std::string_view payload = output.substr(head, size);
    output.remove_prefix(head + size);
    const bool last = (first & 0x80) != 0;
    const int code = first & 0x7f;
    kinds += "0123456789a"[std::min(code, 10)];
    if (code == 0 || code == 1) {
      FUZZ_CHECK((code == 0) == in_message);
      in_message = !last;
      text += payload;
      if (last) FUZZ_CHECK(is_utf8(std::exchange(text, std::string())));
    } else {
      FUZZ_CHECK(last && (code == 8 || code == 10) && size <= 125);
      FUZZ_CHECK(code != 8 || size != 1);
    }
  }
  return kinds;
}

/// The messages that come of the pieces.
std::string run(Fuzz_Input::Pieces pieces, std::size_t room) {
  Scripted_Stream::State state;
  state.pieces = std::move(pieces);
  state.room = state.left = room;
  CGI_Request handshake;
  handshake.headers().put("Host", "h");
  handshake.headers().put("Upgrade", "websocket");
  handshake.headers().put("Connection", "upgrade");
  handshake.headers().put("Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ==");
  handshake.headers().put("Sec-WebSocket-Version", "13");
  auto stream = std::make_unique<http::Websocket_Stream>(std::make_unique<Scripted_Stream>(state),
                                                         state.loop.get_executor(), max_message,
                                                         std::chrono::hours(1));
  error_code error;
  stream->accept(handshake, std::string(), error);
  FUZZ_CHECK(!error);
  const auto echo = std::make_shared<Echo>(std::move(stream));
  echo->start();
  state.loop.run();
  FUZZ_CHECK(echo->closed());  // nobody waits for anything
  const std::size_t end = state.output.find("\r\n\r\n");
  if (room > 4096) {
    FUZZ_CHECK(end != std::string::npos);
    check_frames(std::string_view(state.output).substr(end + 4));
  }
  return echo->messages();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 10000) return 0;
  const Fuzz_Input input(data, size);
  constexpr std::size_t much = 1u << 30;
  const std::string whole = run(input.whole(), much);
  FUZZ_CHECK(run(input.cut(), much) == whole);
  FUZZ_CHECK(run(input.cut(), input.piece_size(0)) == whole);
  return 0;
}
