#pragma once

#include <boost/asio/generic/stream_protocol.hpp>

#include "transport/byte_stream.h"

namespace transport {

/// A plain TCP or Unix socket.
class Socket_Stream final : public Byte_Stream {
public:
  typedef boost::asio::generic::stream_protocol::socket Socket;

  /// `socket` is connected and does not block.
  explicit Socket_Stream(Socket socket);

  void async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) override;
  std::size_t read_some(char* data, std::size_t size, boost::system::error_code& error) override;
  std::size_t write_some(const boost::asio::const_buffer* buffers, std::size_t count,
                         boost::system::error_code& error) override;
  void async_wait_writable(const std::shared_ptr<User>& user) override;
  void shutdown_send(bool going_away) override;
  void close() override;
  int descriptor() override { return socket_.native_handle(); }

private:
  Socket socket_;
};

}  // namespace transport
