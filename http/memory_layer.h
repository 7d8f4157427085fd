#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "transport/byte_stream.h"

namespace http {

/// What Boost.Beast's WebSocket stands on: reads come from a Byte_Stream, and what is written is
/// gathered in memory, from where push() hands it on. So a write never waits, and the frames of
/// many messages leave together. On the stream's loop.
class Memory_Layer {
public:
  typedef boost::asio::io_context::executor_type executor_type;

  /// Who is told what the stream below has read, and then calls read().
  struct Reader : transport::Byte_Stream::User {
    /// All that was read has been looked at: what was written can leave before more is read.
    virtual void wants_more() = 0;
  };

  explicit Memory_Layer(const executor_type& executor) : executor_(executor) {}

  executor_type get_executor() { return executor_; }

  /// What is read first, before the stream below.
  std::string ahead;
  /// What is to be handed on.
  std::string output;
  /// Who reads below; null when it has gone.
  transport::Byte_Stream* below = nullptr;
  std::weak_ptr<Reader> reader;

  template <typename Buffers, typename Handler>
  void async_read_some(const Buffers& buffers, Handler&& handler) {
    const boost::asio::mutable_buffer first = *boost::asio::buffer_sequence_begin(buffers);
    const std::shared_ptr<Reader> user = reader.lock();
    if (!ahead.empty() || below == nullptr || user == nullptr) {
      const std::size_t length = boost::asio::buffer_copy(first, boost::asio::buffer(ahead));
      ahead.erase(0, length);
      complete_later(
          length == 0 ? boost::asio::error::operation_aborted : boost::system::error_code(), length,
          std::forward<Handler>(handler));
      return;
    }
    pending_ = std::make_unique<Pending_Of<std::decay_t<Handler>>>(std::forward<Handler>(handler));
    user->wants_more();
    buffer_ = first;
    held_ = answered_ > answered_most;
    if (!held_) read_below(user);
  }

  /// Whether the stream below has a buffer of Beast's, or of whoever reads through it, which is to
  /// stay until read().
  bool reading() const { return reading_; }
  void reading(bool on) { reading_ = on; }

  /// What may wait to be handed on; and of that what Beast has answered by itself: beyond it
  /// nothing is read, so that a peer that pings and takes nothing is not served.
  static constexpr std::size_t output_most = 256u << 10;
  static constexpr std::size_t answered_most = 64u << 10;
  bool full() const { return output.size() > output_most; }
  bool held() const { return held_; }

  /// Output has been handed on; after all of it a read that was held back goes on.
  void read_on() {
    if (!output.empty()) return;
    answered_ = 0;
    const std::shared_ptr<Reader> user = reader.lock();
    if (!held_ || below == nullptr || user == nullptr) return;
    held_ = false;
    read_below(user);
  }

  /// The stream below has read, or failed; that ends a read which was held back, too.
  void read(const boost::system::error_code& error, std::size_t length) {
    held_ = false;
    const std::unique_ptr<Pending> pending = std::move(pending_);
    if (pending != nullptr) pending->complete(error, length);
  }

  template <typename Buffers, typename Handler>
  void async_write_some(const Buffers& buffers, Handler&& handler) {
    boost::system::error_code error;
    const std::size_t length = write_some(buffers, error);
    answered_ += length;
    complete_later(error, length, std::forward<Handler>(handler));
  }

  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers, boost::system::error_code& error) {
    error = {};
    std::size_t length = 0;
    for (auto it = boost::asio::buffer_sequence_begin(buffers);
         it != boost::asio::buffer_sequence_end(buffers); ++it) {
      const boost::asio::const_buffer buffer = *it;
      output.append(static_cast<const char*>(buffer.data()), buffer.size());
      length += buffer.size();
    }
    return length;
  }

  // Beast asks for these too, and calls none of them: all reading is asynchronous, and no error is
  // to be thrown.
  template <typename Buffers>
  std::size_t read_some(const Buffers&, boost::system::error_code& error) {
    error = boost::asio::error::operation_not_supported;
    return 0;
  }
  template <typename Buffers>
  std::size_t read_some(const Buffers&) {
    return 0;
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers) {
    boost::system::error_code ignored;
    return write_some(buffers, ignored);
  }

private:
  struct Pending {
    virtual ~Pending() = default;
    virtual void complete(const boost::system::error_code& error, std::size_t length) = 0;
  };
  template <typename Handler>
  struct Pending_Of final : Pending {
    explicit Pending_Of(Handler&& h) : handler(std::move(h)) {}
    void complete(const boost::system::error_code& error, std::size_t length) override {
      handler(error, length);
    }
    Handler handler;
  };

  void read_below(const std::shared_ptr<Reader>& user) {
    reading_ = true;
    below->async_read(static_cast<char*>(buffer_.data()), buffer_.size(), user);
  }

  template <typename Handler>
  void complete_later(boost::system::error_code error, std::size_t length, Handler&& handler) {
    boost::asio::post(executor_, [error, length, h = std::forward<Handler>(handler)]() mutable {
      h(error, length);
    });
  }

  executor_type executor_;
  std::unique_ptr<Pending> pending_;
  boost::asio::mutable_buffer buffer_;  // of what is pending
  bool held_ = false;                   // it is not read yet
  bool reading_ = false;
  std::size_t answered_ = 0;  // bytes that Beast wrote by itself, since output was empty
};

// The stream below is closed by whoever has it.

inline void teardown(boost::beast::role_type, Memory_Layer&, boost::system::error_code& error) {
  error = {};
}

template <typename Handler>
void async_teardown(boost::beast::role_type, Memory_Layer& layer, Handler&& handler) {
  boost::asio::post(layer.get_executor(), [h = std::forward<Handler>(handler)]() mutable {
    h(boost::system::error_code());
  });
}

inline void beast_close_socket(Memory_Layer&) {}

}  // namespace http
