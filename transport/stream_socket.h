#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include "transport/stream_channel.h"

namespace transport {

typedef boost::asio::ip::tcp::socket Tcp_Socket;
typedef boost::asio::local::stream_protocol::socket Unix_Socket;

/// The ends of a connected socket.
Stream_Channel::Addresses addresses_of(const Tcp_Socket& socket);
Stream_Channel::Addresses addresses_of(const Unix_Socket& socket);

/// What every connection wants: small messages leave at once, and a peer whose machine has gone is
/// found out after about two minutes.
void prepare(Tcp_Socket& socket);
void prepare(Unix_Socket& socket);

}  // namespace transport
