#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "tests/process/host_client.h"
#include "tests/support/certificates.h"

/// A client of any door that has TCP below; with TLS where the URL's scheme ends with an 's'. It
/// verifies nothing.
class Wire_Client : public Host_Client {
public:
  explicit Wire_Client(const std::string& url, const std::string& certificate = "",
                       int receive_buffer = 0)
      : Host_Client(url, receive_buffer) {
    if (url[url.find(':') - 1] == 's' && url.rfind("ws:", 0) != 0) shake_hands(certificate);
  }

  void half_close() override {
    if (tls_ != nullptr) SSL_shutdown(tls_.get());
    Host_Client::half_close();
  }

private:
  void shake_hands(const std::string& certificate) {
    ::signal(SIGPIPE, SIG_IGN);  // OpenSSL writes without MSG_NOSIGNAL
    const timeval patience{host_patience.count(), 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    context_.reset(SSL_CTX_new(TLS_client_method()));
    if (!certificate.empty()) {
      SSL_CTX_use_certificate_file(context_.get(), certificate.c_str(), SSL_FILETYPE_PEM);
      SSL_CTX_use_PrivateKey_file(context_.get(), certificate.c_str(), SSL_FILETYPE_PEM);
    }
    tls_.reset(SSL_new(context_.get()));
    SSL_set_fd(tls_.get(), socket_);
    connected_ = connected_ && SSL_connect(tls_.get()) == 1;
  }

  ssize_t write_some(const char* data, std::size_t size) override {
    if (tls_ == nullptr) return Host_Client::write_some(data, size);
    const int sent = SSL_write(tls_.get(), data, static_cast<int>(size));
    return sent > 0 ? sent : -1;
  }
  ssize_t read_some(char* data, std::size_t size, std::chrono::milliseconds limit) override {
    if (tls_ == nullptr) return Host_Client::read_some(data, size, limit);
    errno = 0;
    const int length = SSL_read(tls_.get(), data, static_cast<int>(size));
    return length > 0 ? length : errno == EAGAIN ? -1 : 0;
  }

  struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* tls) const { SSL_free(tls); }
  };
  std::unique_ptr<SSL_CTX, Free> context_;
  std::unique_ptr<SSL, Free> tls_;
};

struct Http_Answer {
  int status = 0;
  std::string head;
  std::string body;
};

/// The next answer, whose body ends as its head says.
inline Http_Answer http_answer(Wire_Client& client, bool head_only = false) {
  Http_Answer answer;
  answer.head = client.until("\r\n\r\n");
  if (answer.head.rfind("HTTP/1.1 ", 0) == 0) answer.status = std::stoi(answer.head.substr(9));
  const std::size_t length = answer.head.find("Content-Length: ");
  if (head_only || answer.status < 200 || answer.status == 204) return answer;
  if (length != std::string::npos) {
    answer.body = client.bytes(std::stoul(answer.head.substr(length + 16)));
  } else if (answer.head.find("Transfer-Encoding: chunked") == std::string::npos) {
    answer.body = client.rest();
  } else {
    while (const std::size_t size = std::stoul("0" + client.until("\r\n"), nullptr, 16)) {
      answer.body += client.bytes(size);
      EXPECT_EQ("\r\n", client.bytes(2));
    }
    EXPECT_EQ("\r\n", client.bytes(2));
  }
  return answer;
}

/// "POST /rpc" of a JSON text; `fields` are whole lines.
inline std::string http_post(const std::string& body, const std::string& fields = "",
                             const std::string& target = "/rpc") {
  return "POST " + target + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n" +
         fields + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

inline std::string http_get(const std::string& target, const std::string& fields = "") {
  return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n";
}

/// What a WebSocket client opens with; the host's answer ends with an empty line.
inline std::string websocket_handshake(const std::string& fields = "") {
  return http_get("/rpc",
                  "Upgrade: websocket\r\nConnection: keep-alive, Upgrade\r\n"
                  "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n" +
                      fields);
}

/// A masked frame; `first` is the byte with FIN and the opcode.
inline std::string websocket_frame(unsigned char first, std::string payload) {
  std::string frame(1, static_cast<char>(first));
  const std::size_t size = payload.size();
  const int more = size < 126 ? 0 : size < 65536 ? 2 : 8;
  frame += static_cast<char>(0x80 | (more == 0 ? size : more == 2 ? 126 : 127));
  for (int i = more - 1; i >= 0; --i) frame += static_cast<char>(size >> (8 * i));
  const char mask[] = {0x11, 0x22, 0x33, 0x44};
  frame.append(mask, 4);
  for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
  return frame + payload;
}

inline std::string websocket_text(const std::string& text) { return websocket_frame(0x81, text); }
inline std::string websocket_close(int code) {
  return websocket_frame(0x88, {static_cast<char>(code >> 8), static_cast<char>(code)});
}

/// The next frame as text: the payload of a whole text message, else the first byte in hex and the
/// payload, or the code of a close.
inline std::string websocket_answer(Wire_Client& client) {
  const std::string head = client.bytes(2);
  if (head.size() < 2) return "closed";
  std::size_t size = static_cast<unsigned char>(head[1]);
  const int more = size == 126 ? 2 : size == 127 ? 8 : 0;
  if (more > 0) size = 0;
  for (const char c : client.bytes(more)) size = size << 8 | static_cast<unsigned char>(c);
  const std::string payload = client.bytes(size);
  const auto first = static_cast<unsigned char>(head[0]);
  if (first == 0x81) return payload;
  if (first == 0x88 && size >= 2) {
    return "close " + std::to_string(static_cast<unsigned char>(payload[0]) << 8 |
                                     static_cast<unsigned char>(payload[1]));
  }
  char name[8];
  std::snprintf(name, sizeof name, "%02x ", first);
  return name + payload;
}
