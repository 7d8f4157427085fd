#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_object.h"
#include "transport/endpoint.h"
#include "transport/link_channel.h"
#include "transport/link_options.h"
#include "transport/loop.h"
#include "transport/server_state.h"
#include "transport/socket_stream.h"
#include "transport/stream_connection.h"
#include "transport/stream_socket.h"
#include "vexa/exponential_backoff_iterator.h"

namespace transport {

/// Keeps one connection to a peer: opens it, greets, is up until it closes, waits, and opens the
/// next. While it is up its channel is in the channel pool. Lives on one loop, and is touched there
/// alone, except that it may be made and started before the loop runs, and destroyed after.
class Link final : public Connection_Watcher, public std::enable_shared_from_this<Link> {
public:
  Link(std::shared_ptr<Loop> loop, std::shared_ptr<Server_State> state, const Endpoint& endpoint,
       const Link_Options& options);
  ~Link() override;

  const JSON_RPC_Channel_var& channel() const { return channel_; }
  const std::shared_ptr<Loop>& loop() const { return loop_; }

  void start();
  /// Opens no connection any more; the present one goes on.
  void close();

  void connection_closed(const char* reason) override;

private:
  class Greeting_Handler;

  template <typename Operation>
  auto while_current(Operation operation);
  template <typename Operation>
  void after(std::chrono::milliseconds time, Operation operation);
  void dial();
  void dial_tcp();
  void resolved(const boost::system::error_code& error,
                const boost::asio::ip::tcp::resolver::results_type& found);
  void dial_unix();
  template <typename Socket>
  void dialed(const boost::system::error_code& error, Socket& socket);
  void connected(Socket_Stream::Socket socket, const Stream_Channel::Addresses& addresses);
  void greet();
  void greeted(const JSON_RPC_Object* answer);
  void end_connection(const char* reason);
  void up();
  void down(const std::string& reason);
  void abandon_attempt();

  const std::shared_ptr<Loop> loop_;
  const std::shared_ptr<Server_State> state_;
  const Endpoint endpoint_;
  const Link_Options options_;
  Link_Channel* facade_;             // what channel_ refers to
  JSON_RPC_Channel_var channel_;     // owned
  boost::asio::steady_timer timer_;  // of the attempt, of the greeting, or until the next one
  // The socket that is being connected is its handler's; this closes it.
  std::function<void()> hang_up_;
  std::weak_ptr<Stream_Connection> connection_;  // since it is connected
  std::string greeting_id_;                      // in the response map, while its answer is awaited
  Exponential_Backoff_Iterator wait_;            // until the next attempt
  unsigned long long attempt_ = 0;               // tells what is pending of an earlier one
  bool up_ = false;
  bool closed_ = false;
};

}  // namespace transport
