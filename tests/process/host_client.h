#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "tests/process/host_process.h"
#include "vexa/json_reader.h"

/// A request as text; without an id a notification.
inline std::string request(const std::string& method, const std::string& params,
                           const std::string& id = std::string()) {
  return R"({"jsonrpc":"2.0","method":")" + method + R"(","params":)" + params +
         (id.empty() ? "" : R"(,"id":)" + id) + "}\n";
}

inline std::string result(const std::string& id, const std::string& value) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":)" + value + "}";
}

inline std::string error(const std::string& id, int code, const std::string& text) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"error":{"code":)" + std::to_string(code) +
         R"(,"message":")" + text + "\"}}";
}

/// A blocking client of the host. What does not come in time fails the test.
class Host_Client {
public:
  explicit Host_Client(const std::string& url) {
    connected_ = url.rfind("unix://", 0) == 0 ? connect_unix(url.substr(7)) : connect_tcp(url);
  }
  ~Host_Client() {
    if (socket_ != -1) ::close(socket_);
  }
  Host_Client(const Host_Client&) = delete;
  Host_Client& operator=(const Host_Client&) = delete;

  bool connected() const { return connected_; }
  int port() const { return port_; }

  /// Sends all, in pieces of that size; false when the host has closed or takes nothing for long.
  bool send(const std::string& text, std::size_t piece = std::string::npos) {
    for (std::size_t at = 0; at < text.size();) {
      if (!wait_for(POLLOUT, host_patience)) return false;
      const ssize_t sent = ::send(socket_, text.data() + at, std::min(piece, text.size() - at),
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0 && errno != EAGAIN) return false;
      if (sent > 0) at += sent;
    }
    return true;
  }

  /// The next line, without its line feed.
  std::string line() {
    std::size_t end;
    while ((end = buffer_.find('\n', searched_)) == std::string::npos) {
      searched_ = buffer_.size();
      if (!receive(host_patience)) {
        ADD_FAILURE() << (ended_ ? "the host closed" : "nothing came") << ", after: " << buffer_;
        return std::string();
      }
    }
    const std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    searched_ = 0;
    return line;
  }

  /// The next line as a value.
  json_spirit::Object object() {
    const std::string text = line();
    json_spirit::Value value;
    const bool read = json_read(text.data(), text.size(), value);
    EXPECT_TRUE(read && value.type() == json_spirit::obj_type) << text;
    return read && value.type() == json_spirit::obj_type ? value.get_obj() : json_spirit::Object();
  }

  /// All that comes until the host closes.
  std::string rest(std::chrono::milliseconds limit = host_patience) {
    while (receive(limit)) {
    }
    EXPECT_TRUE(ended_) << "the host did not close";
    return buffer_;
  }

  /// Exactly so many bytes.
  std::string bytes(std::size_t count) {
    while (buffer_.size() < count && receive(host_patience)) {
    }
    const std::string taken = buffer_.substr(0, count);
    buffer_.erase(0, count);
    return taken;
  }

  /// Whether nothing comes for that long.
  bool silent(std::chrono::milliseconds time) {
    return buffer_.empty() && !receive(time) && !ended_;
  }

  std::string call(const std::string& text) { return send(text) ? line() : "not sent"; }

  void half_close() { ::shutdown(socket_, SHUT_WR); }
  void close() {
    ::close(socket_);
    socket_ = -1;
  }
  /// Closes with a reset.
  void reset() {
    const linger now{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    close();
  }

private:
  bool connect_unix(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return open(reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  bool connect_tcp(const std::string& url) {
    const std::size_t colon = url.rfind(':');
    const int port = std::stoi(url.substr(colon + 1));
    if (url.find('[') != std::string::npos) {
      sockaddr_in6 address{};
      address.sin6_family = AF_INET6;
      address.sin6_port = htons(port);
      address.sin6_addr = in6addr_loopback;
      return open(reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = open(reinterpret_cast<const sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    return connected;
  }

  bool open(const sockaddr* address, socklen_t length) {
    socket_ = ::socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return ::connect(socket_, address, length) == 0;
  }

  bool wait_for(short events, std::chrono::milliseconds limit) const {
    pollfd wanted{socket_, events, 0};
    return ::poll(&wanted, 1, static_cast<int>(limit.count())) == 1;
  }

  /// Something has come.
  bool receive(std::chrono::milliseconds limit) {
    if (ended_ || !wait_for(POLLIN, limit)) return false;
    char bytes[65536];
    const ssize_t length = ::recv(socket_, bytes, sizeof bytes, 0);
    ended_ = length <= 0;
    if (!ended_) buffer_.append(bytes, length);
    return !ended_;
  }

  int socket_ = -1;
  int port_ = 0;
  bool connected_ = false;
  bool ended_ = false;
  std::string buffer_;
  std::size_t searched_ = 0;  // of buffer_: no line feed there
};
