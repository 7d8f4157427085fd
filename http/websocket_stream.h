#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <string>

#include "transport/byte_stream.h"
#include "vexa/cgi_request.h"

namespace http {

/// WebSocket (RFC 6455) over another stream, by Boost.Beast: text messages in both directions.
/// Pings are answered, and sent where the peer has been silent; close frames are exchanged. A
/// binary message ends the connection with 1003, one over the limit with 1009, text that is no
/// UTF-8 with 1007.
class Websocket_Stream final : public transport::Byte_Stream {
public:
  /// @param max_message bytes of an incoming message, 0 for any
  /// @param silence after which a peer is sent a ping, and after as much again given up
  Websocket_Stream(std::unique_ptr<transport::Byte_Stream> below,
                   const boost::asio::io_context::executor_type& executor, std::size_t max_message,
                   std::chrono::milliseconds silence);
  ~Websocket_Stream() override;

  /// Answers the handshake `request`, behind which `leftover` came. Before anything else.
  void accept(const CGI_Request& request, const std::string& leftover,
              boost::system::error_code& error);

  void async_read(char* data, std::size_t size, const std::shared_ptr<User>& user) override;
  std::size_t read_some(char* data, std::size_t size, boost::system::error_code& error) override;
  std::size_t write_some(const boost::asio::const_buffer* buffers, std::size_t count,
                         boost::system::error_code& error) override;
  void async_wait_writable(const std::shared_ptr<User>& user) override;
  bool keeps_messages() const override { return true; }
  void write_part(std::string_view text, bool last, boost::system::error_code& error) override;
  void push(boost::system::error_code& error) override;
  bool take_message_end() override;
  bool holds_output() const override;
  void shutdown_send(bool going_away) override;
  void close() override;
  void tick() override;
  int descriptor() override;
  bool is_tls() const override;

private:
  struct State;
  const std::shared_ptr<State> state_;  // kept by what is pending
};

}  // namespace http
