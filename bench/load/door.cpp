#include "bench/load/door.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

bool take_prefix(std::string& text, const char* prefix) {
  if (text.rfind(prefix, 0) != 0) return false;
  text.erase(0, std::strlen(prefix));
  return true;
}

bool split_authority(std::string authority, Door& door) {
  const std::size_t colon = authority.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == authority.size()) return false;
  door.port = authority.substr(colon + 1);
  door.host = authority.substr(0, colon);
  if (door.host.front() == '[' && door.host.back() == ']') {
    door.host = door.host.substr(1, door.host.size() - 2);
  }
  return door.port.find_first_not_of("0123456789") == std::string::npos;
}

int connect_to(int family, const sockaddr* address, socklen_t length) {
  const int socket = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket == -1) return -1;
  const int on = 1;
  if (family != AF_UNIX) ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (::connect(socket, address, length) == 0) return socket;
  const int reason = errno;
  ::close(socket);
  errno = reason;
  return -1;
}

int connect_unix(const std::string& path, std::string& error) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    error = "the path is too long";
    return -1;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  const int socket =
      connect_to(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (socket == -1) error = std::strerror(errno);
  return socket;
}

int connect_tcp(const Door& door, std::string& error) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int result = ::getaddrinfo(door.host.c_str(), door.port.c_str(), &hints, &found);
  if (result != 0) {
    error = ::gai_strerror(result);
    return -1;
  }
  int socket = -1;
  for (const addrinfo* at = found; at != nullptr && socket == -1; at = at->ai_next) {
    socket = connect_to(at->ai_family, at->ai_addr, at->ai_addrlen);
    if (socket == -1) error = std::strerror(errno);
  }
  ::freeaddrinfo(found);
  return socket;
}

/// Asks for WebSocket (RFC 6455). The key may be any; whether the answer fits it is not looked at.
bool upgrade(int socket, const Door& door) {
  const timeval patience = {10, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const std::string request = "GET " + door.path + " HTTP/1.1\r\nHost: " + door.host + ":" +
                              door.port +
                              "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                              "Sec-WebSocket-Version: 13\r\n"
                              "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n";
  ::send(socket, request.data(), request.size(), MSG_NOSIGNAL);
  std::string head;
  for (char c; head.find("\r\n\r\n") == std::string::npos; head += c) {
    if (head.size() == 4096 || ::recv(socket, &c, 1, 0) != 1) return false;
  }
  return head.rfind("HTTP/1.1 101 ", 0) == 0;
}

}  // namespace

bool Door::parse(const std::string& url, Door& door) {
  std::string rest = url;
  if (take_prefix(rest, "unix://")) {
    door.kind = UNIX;
    door.path = rest;
    return !rest.empty();
  }
  if (take_prefix(rest, "tcp://")) {
    door.kind = TCP;
    return split_authority(rest, door);
  }
  if (take_prefix(rest, "http://")) {
    door.kind = HTTP;
  } else if (take_prefix(rest, "ws://")) {
    door.kind = WEBSOCKET;
  } else {
    return false;
  }
  const std::size_t slash = rest.find('/');
  door.path = slash == std::string::npos ? "/rpc" : rest.substr(slash);
  return split_authority(rest.substr(0, slash), door);
}

int Door::connect(std::string& error) const {
  const int socket = kind == UNIX ? connect_unix(path, error) : connect_tcp(*this, error);
  if (socket == -1) return -1;
  if (kind == WEBSOCKET && !upgrade(socket, *this)) {
    error = "no upgrade to WebSocket";
  } else if (::fcntl(socket, F_SETFL, O_NONBLOCK) != 0) {
    error = std::strerror(errno);
  } else {
    return socket;
  }
  ::close(socket);
  return -1;
}
