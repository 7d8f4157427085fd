#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// What the server does once it has read a request.
struct Scripted_Reply {
  enum Then { keep, close, reset, stall };
  std::string text;
  Then then = keep;
  std::size_t piece = 0;  // bytes of a write; 0: all at once
  bool early = false;     // answers when it has the request's head
};

/// An HTTP server on 127.0.0.1 that takes one connection after the other and answers what the
/// script says: for each connection its replies, in order. When they are used up it waits until the
/// client closes. With a certificate it speaks TLS. Its thread ends with it.
class Scripted_HTTP_Server {
public:
  typedef std::vector<Scripted_Reply> Connection;

  /// `certificate` is a PEM file that holds the key too.
  explicit Scripted_HTTP_Server(std::vector<Connection> script, const std::string& certificate = "")
      : script_(std::move(script)) {
    if (!certificate.empty()) {
      tls_ = SSL_CTX_new(TLS_server_method());
      if (SSL_CTX_use_certificate_chain_file(tls_, certificate.c_str()) != 1 ||
          SSL_CTX_use_PrivateKey_file(tls_, certificate.c_str(), SSL_FILETYPE_PEM) != 1) {
        ADD_FAILURE() << "no certificate in " << certificate;
      }
    }
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    sockaddr* const name = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, name, size) != 0 || ::listen(listener_, 8) != 0 ||
        ::getsockname(listener_, name, &size) != 0) {
      ADD_FAILURE() << "cannot listen";
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { run(); });
  }
  ~Scripted_HTTP_Server() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      if (peer_ != -1) ::shutdown(peer_, SHUT_RDWR);
    }
    thread_.join();
    ::close(listener_);
    SSL_CTX_free(tls_);
  }
  Scripted_HTTP_Server(const Scripted_HTTP_Server&) = delete;
  Scripted_HTTP_Server& operator=(const Scripted_HTTP_Server&) = delete;

  unsigned short port() const { return port_; }
  std::string url(const std::string& scheme = "http") const {
    return scheme + "://127.0.0.1:" + std::to_string(port_);
  }
  int connections() const { return connections_; }
  /// The requests as they came, head and framed body.
  std::vector<std::string> requests() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
  }
  /// The last of them, "" before the first.
  std::string request() const {
    const std::vector<std::string> all = requests();
    return all.empty() ? "" : all.back();
  }

  /// Resets the connection that is served. It is gone when this returns.
  void cut() {
    std::unique_lock<std::mutex> guard(mutex_);
    const linger at_once{1, 0};
    ::setsockopt(peer_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    ::shutdown(peer_, SHUT_RD);  // wakes the thread, and tells the client nothing yet
    closed_.wait(guard, [this] { return peer_ == -1; });
  }

private:
  void run() {
    sigset_t pipe;  // OpenSSL would raise it here; in the threads of the client none may be raised
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    for (const Connection& replies : script_) {
      const int peer = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (peer == -1) return;
      ++connections_;
      {
        const std::lock_guard<std::mutex> guard(mutex_);
        peer_ = peer;
      }
      if (stopping_) ::shutdown(peer, SHUT_RDWR);
      serve(peer, replies);
      const std::lock_guard<std::mutex> guard(mutex_);
      SSL_free(ssl_);
      ssl_ = nullptr;
      ::close(peer);
      peer_ = -1;
      closed_.notify_all();
    }
  }

  void serve(int peer, const Connection& replies) {
    if (tls_ != nullptr) {
      ssl_ = SSL_new(tls_);
      SSL_set_fd(ssl_, peer);
      if (SSL_accept(ssl_) != 1) return;
    }
    std::string ahead;
    for (const Scripted_Reply& reply : replies) {
      if (!read_request(ahead, reply.early)) return;
      const std::size_t piece = reply.piece == 0 ? reply.text.size() : reply.piece;
      for (std::size_t at = 0; at < reply.text.size(); at += piece) {
        if (!write(reply.text.substr(at, piece))) return;
        if (reply.piece != 0) std::this_thread::yield();
      }
      if (reply.then == Scripted_Reply::reset) {
        const linger at_once{1, 0};
        ::setsockopt(peer, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        return;
      }
      if (reply.then == Scripted_Reply::close) {
        if (ssl_ != nullptr) SSL_shutdown(ssl_);
        return;
      }
      if (reply.then == Scripted_Reply::stall) break;
    }
    // What the client may still send stays unread.
    pollfd closed{peer, POLLRDHUP, 0};
    ::poll(&closed, 1, -1);
  }

  bool read_request(std::string& ahead, bool head_only) {
    std::string request;
    for (;;) {
      request += ahead;
      ahead.clear();
      const std::size_t end = request.find("\r\n\r\n");
      if (end != std::string::npos && (head_only || whole(request, end + 4))) break;
      char data[65536];
      const ssize_t got =
          ssl_ != nullptr ? SSL_read(ssl_, data, sizeof data) : ::recv(peer_, data, sizeof data, 0);
      if (got <= 0) return false;
      ahead.assign(data, static_cast<std::size_t>(got));
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    requests_.push_back(request);
    return true;
  }

  static bool whole(const std::string& request, std::size_t body) {
    const std::size_t length = request.find("Content-Length: ");
    if (length < body) {
      return request.size() - body == std::strtoul(request.c_str() + length + 16, nullptr, 10);
    }
    if (request.find("Transfer-Encoding: chunked") > body) return true;
    return request.size() >= body + 5 && request.compare(request.size() - 5, 5, "0\r\n\r\n") == 0;
  }

  bool write(const std::string& text) {
    if (ssl_ != nullptr) {
      return SSL_write(ssl_, text.data(), static_cast<int>(text.size())) > 0;
    }
    return ::send(peer_, text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }

  const std::vector<Connection> script_;
  SSL_CTX* tls_ = nullptr;
  SSL* ssl_ = nullptr;  // of the connection that is served
  int listener_ = -1;
  unsigned short port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> connections_{0};
  mutable std::mutex mutex_;
  std::condition_variable closed_;
  int peer_ = -1;                      // written by thread_ under mutex_
  std::vector<std::string> requests_;  // guarded by mutex_
  std::thread thread_;
};
