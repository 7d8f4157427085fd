#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <memory>
#include <string_view>

#include "transport/transport_export.h"

namespace transport {

/// Whether an operation did nothing because it would have had to wait.
inline bool would_block(const boost::system::error_code& error) {
  return error == boost::asio::error::would_block || error == boost::asio::error::try_again;
}

/// A connected stream of bytes that does not block: a socket, or what is layered over one. Touched
/// on its loop's thread alone.
class TRANSPORT_EXPORT Byte_Stream {
public:
  /// Whoever reads and writes. Kept alive while an operation of its is pending.
  class User {
  public:
    virtual ~User() = default;
    virtual void on_read(const boost::system::error_code& error, std::size_t length) = 0;
    virtual void on_writable(const boost::system::error_code& error) = 0;
  };

  virtual ~Byte_Stream();

  /// Reads 1 to `size` bytes into `data`, which stays until the user is told. One at a time.
  virtual void async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) = 0;
  /// What has come already; would_block where nothing has, or where only async_read() can tell.
  virtual std::size_t read_some(char* data, std::size_t size, boost::system::error_code& error) = 0;

  /// Takes bytes to be sent, as many as it has room for: would_block when there is none.
  virtual std::size_t write_some(const boost::asio::const_buffer* buffers, std::size_t count,
                                 boost::system::error_code& error) = 0;
  /// Tells the user when there is room again. One at a time.
  virtual void async_wait_writable(const std::shared_ptr<User>& user) = 0;

  /// Whether it keeps messages apart: then write_part() takes the place of write_some(), and
  /// take_message_end() says, once, whether the bytes that were last read end a message.
  virtual bool keeps_messages() const;
  /// Takes a whole part of a message, `last` or not; would_block when there is no room for it. What
  /// was taken leaves with push() at the latest.
  virtual void write_part(std::string_view text, bool last, boost::system::error_code& error);
  virtual void push(boost::system::error_code& error);
  virtual bool take_message_end();

  /// Whether it has bytes that it took and that the system does not have yet; async_wait_writable()
  /// tells when it may have none.
  virtual bool holds_output() const;

  /// Nothing more is written; `going_away` because this process stops. What was taken is still
  /// sent.
  virtual void shutdown_send(bool going_away) = 0;
  virtual void close() = 0;

  /// Called every now and then while the stream is read.
  virtual void tick();

  /// Of the socket below.
  virtual int descriptor() = 0;
  virtual bool is_tls() const;
};

}  // namespace transport
