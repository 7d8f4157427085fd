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

/// One that is answered with the time, after it.
inline std::string sleeper(int milliseconds, const std::string& id = "1") {
  return request("sleep", R"({"ms":)" + std::to_string(milliseconds) + "}", id);
}

/// One that subscribes to "n".
inline std::string subscription(const std::string& id = "1") {
  return request("subscribe", R"({"subjects":["n"]})", id);
}

inline std::string result(const std::string& id, const std::string& value) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":)" + value + "}";
}

inline std::string error(const std::string& id, int code, const std::string& text) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"error":{"code":)" + std::to_string(code) +
         R"(,"message":")" + text + "\"}}";
}

/// What "blob" answers.
inline std::string blob(std::size_t bytes) {
  std::string text = "[";
  for (std::size_t size; bytes > 0; bytes -= size) {
    size = std::min<std::size_t>(bytes, 1024);
    text += (text.size() > 1 ? ",\"" : "\"") + std::string(size, 'x') + "\"";
  }
  return text + "]";
}

/// A blocking client of the host, in bytes. What does not come in time fails the test.
class Host_Client {
public:
  /// With a receive buffer of that size; 0: the system's.
  explicit Host_Client(const std::string& url, int receive_buffer = 0)
      : receive_buffer_(receive_buffer) {
    connected_ = url.compare(0, 7, "unix://") == 0 ? connect_unix(url.substr(7)) : connect_tcp(url);
  }
  virtual ~Host_Client() { close(); }
  Host_Client(const Host_Client&) = delete;
  Host_Client& operator=(const Host_Client&) = delete;

  bool connected() const { return connected_; }
  int port() const { return port_; }

  /// Sends all, in pieces of that size; false when the host has closed or takes nothing for long.
  bool send(const std::string& text, std::size_t piece = std::string::npos) {
    for (std::size_t at = 0; at < text.size();) {
      const ssize_t sent = write_some(text.data() + at, std::min(piece, text.size() - at));
      if (sent < 0) return false;
      at += sent;
    }
    return true;
  }

  /// Up to the end of the next `end`; "", and a failed test, when it does not come.
  std::string until(const std::string& end) {
    std::size_t at;
    while ((at = buffer_.find(end, searched_)) == std::string::npos) {
      searched_ = buffer_.size() - std::min(buffer_.size(), end.size() - 1);
      if (receive(host_patience)) continue;
      ADD_FAILURE() << (ended_ ? "the host closed" : "nothing came") << ", after: " << buffer_;
      return std::string();
    }
    return take(at + end.size());
  }
  /// The next line, without its line feed.
  std::string line() {
    std::string text = until("\n");
    if (!text.empty()) text.pop_back();
    return text;
  }
  /// The next line as a value.
  json_spirit::Object object() {
    const std::string text = line();
    json_spirit::Value value;
    const bool read = json_read(text.data(), text.size(), value);
    EXPECT_TRUE(read && value.type() == json_spirit::obj_type) << text;
    return read && value.type() == json_spirit::obj_type ? value.get_obj() : json_spirit::Object();
  }
  /// Exactly so many bytes; fewer when the host closes before.
  std::string bytes(std::size_t count) {
    while (buffer_.size() < count && receive(host_patience)) {
    }
    return take(count);
  }
  /// All that comes until the host closes.
  std::string rest() {
    while (receive(host_patience)) {
    }
    EXPECT_TRUE(ended_) << "the host did not close";
    return take(buffer_.size());
  }
  /// Whether nothing comes for that long.
  bool silent(std::chrono::milliseconds time) {
    return buffer_.empty() && !receive(time) && !ended_;
  }

  std::string call(const std::string& text) { return send(text) ? line() : "not sent"; }

  virtual void half_close() { ::shutdown(socket_, SHUT_WR); }
  void close() {
    if (socket_ != -1) ::close(socket_);
    socket_ = -1;
  }
  /// Closes with a reset.
  void reset() {
    const linger now{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    close();
  }

protected:
  /// How many bytes were taken or came; 0 when the host has closed, -1 when it is too late.
  virtual ssize_t write_some(const char* data, std::size_t size) {
    if (!wait_for(POLLOUT, host_patience)) return -1;
    const ssize_t sent = ::send(socket_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 && errno == EAGAIN ? 0 : sent;
  }
  virtual ssize_t read_some(char* data, std::size_t size, std::chrono::milliseconds limit) {
    if (!wait_for(POLLIN, limit)) return -1;
    return std::max<ssize_t>(0, ::recv(socket_, data, size, 0));
  }

  int socket_ = -1;
  bool connected_ = false;

private:
  bool connect_unix(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return open(reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  bool connect_tcp(const std::string& url) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = open(reinterpret_cast<const sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    return connected;
  }

  bool open(const sockaddr* address, socklen_t length) {
    socket_ = ::socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receive_buffer_ > 0) {
      ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receive_buffer_, sizeof receive_buffer_);
    }
    return ::connect(socket_, address, length) == 0;
  }

  bool wait_for(short events, std::chrono::milliseconds limit) const {
    pollfd wanted{socket_, events, 0};
    return ::poll(&wanted, 1, static_cast<int>(limit.count())) == 1;
  }

  /// Something has come.
  bool receive(std::chrono::milliseconds limit) {
    if (ended_) return false;
    char bytes[65536];
    const ssize_t length = read_some(bytes, sizeof bytes, limit);
    ended_ = length == 0;
    if (length > 0) buffer_.append(bytes, length);
    return length > 0;
  }

  std::string take(std::size_t count) {
    std::string taken = buffer_.substr(0, count);
    buffer_.erase(0, count);
    searched_ = 0;
    return taken;
  }

  const int receive_buffer_;
  int port_ = 0;
  bool ended_ = false;
  std::string buffer_;
  std::size_t searched_ = 0;  // of buffer_: what is looked for does not begin there
};
