#pragma once

#include <boost/asio/ssl/stream.hpp>
#include <memory>

#include "transport/byte_stream.h"
#include "transport/socket_stream.h"

namespace transport {

/// TLS over a socket, after the handshake. What is written is copied and encrypted in the
/// background, 64 KiB at a time; meanwhile there is no room for more.
class Tls_Stream final : public Byte_Stream {
public:
  typedef boost::asio::ssl::stream<Socket_Stream::Socket> Stream;

  explicit Tls_Stream(std::unique_ptr<Stream> stream);
  ~Tls_Stream() override;

  void async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) override;
  std::size_t read_some(char* data, std::size_t size, boost::system::error_code& error) override;
  std::size_t write_some(const boost::asio::const_buffer* buffers, std::size_t count,
                         boost::system::error_code& error) override;
  void async_wait_writable(const std::shared_ptr<User>& user) override;
  bool holds_output() const override;
  void shutdown_send(bool going_away) override;
  void close() override;
  int descriptor() override;
  bool is_tls() const override { return true; }

private:
  struct State;
  const std::shared_ptr<State> state_;  // kept by what is pending
};

}  // namespace transport
