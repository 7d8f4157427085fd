#include "transport/socket_stream.h"

#include <boost/asio/error.hpp>
#include <utility>

#include "transport/buffer_range.h"

namespace transport {

using boost::system::error_code;

namespace {

/// Asio repeats what a signal interrupted only where it waits itself.
template <typename Transfer>
std::size_t uninterrupted(error_code& error, Transfer transfer) {
  std::size_t bytes = transfer();
  while (error == boost::asio::error::interrupted) bytes = transfer();
  return bytes;
}

}  // namespace

Socket_Stream::Socket_Stream(Socket socket) : socket_(std::move(socket)) {}

void Socket_Stream::async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) {
  socket_.async_read_some(
      boost::asio::buffer(data, size),
      [user](const error_code& error, std::size_t length) { user->on_read(error, length); });
}

std::size_t Socket_Stream::read_some(char* data, std::size_t size, error_code& error) {
  return uninterrupted(error,
                       [&] { return socket_.read_some(boost::asio::buffer(data, size), error); });
}

std::size_t Socket_Stream::write_some(const boost::asio::const_buffer* buffers, std::size_t count,
                                      error_code& error) {
  return uninterrupted(error, [&] {
    if (count == 1) return socket_.write_some(boost::asio::const_buffers_1(*buffers), error);
    return socket_.write_some(Buffer_Range(buffers, count), error);
  });
}

void Socket_Stream::async_wait_writable(const std::shared_ptr<User>& user) {
  socket_.async_wait(Socket::wait_write,
                     [user](const error_code& error) { user->on_writable(error); });
}

void Socket_Stream::shutdown_send(bool) {
  error_code ignored;
  socket_.shutdown(Socket::shutdown_send, ignored);
}

void Socket_Stream::close() {
  error_code ignored;
  socket_.close(ignored);
}

}  // namespace transport
