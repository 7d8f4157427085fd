#include "transport/stream_socket.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/socket_base.hpp>

namespace transport {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

void set_tcp(Tcp_Socket& socket, int option, int value) {
  // What cannot be set stays at the system's default.
  ::setsockopt(socket.native_handle(), IPPROTO_TCP, option, &value, sizeof value);
}

/// An IPv4 address that a listener on [::] shows as an IPv6 one.
tcp::endpoint plain(const tcp::endpoint& endpoint) {
  if (!endpoint.address().is_v6() || !endpoint.address().to_v6().is_v4_mapped()) return endpoint;
  const auto bytes = endpoint.address().to_v6().to_bytes();
  const asio::ip::address_v4::bytes_type last = {{bytes[12], bytes[13], bytes[14], bytes[15]}};
  return {asio::ip::address_v4(last), endpoint.port()};
}

}  // namespace

Stream_Channel::Addresses addresses_of(const Tcp_Socket& socket) {
  Stream_Channel::Addresses addresses;
  error_code ignored;
  const tcp::endpoint local = plain(socket.local_endpoint(ignored));
  const tcp::endpoint remote = plain(socket.remote_endpoint(ignored));
  addresses.local.set_addr(local.data(), static_cast<int>(local.size()));
  addresses.remote.set_addr(remote.data(), static_cast<int>(remote.size()));
  return addresses;
}

Stream_Channel::Addresses addresses_of(const Unix_Socket&) {
  Stream_Channel::Addresses addresses;
  addresses.local.set(static_cast<u_short>(0), "127.0.0.1", 1, AF_INET);
  addresses.remote = addresses.local;
  return addresses;
}

void prepare(Tcp_Socket& socket) {
  error_code ignored;
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  socket.set_option(asio::socket_base::keep_alive(true), ignored);
  set_tcp(socket, TCP_KEEPIDLE, 60);
  set_tcp(socket, TCP_KEEPINTVL, 15);
  set_tcp(socket, TCP_KEEPCNT, 4);
}

void prepare(Unix_Socket&) {}

}  // namespace transport
