#include "bench/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "bench/give_up.h"

namespace {

sockaddr_in loopback(unsigned short port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

void no_delay(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

int listen_on_loopback(unsigned short& port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener, SOMAXCONN) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    give_up("listen");
  }
  port = ntohs(address.sin_port);
  return listener;
}

int accept_from(int listener) {
  const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (socket == -1) give_up("accept");
  no_delay(socket);
  return socket;
}

int connect_to(unsigned short port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    give_up("connect");
  }
  no_delay(socket);
  return socket;
}

void send_all(int socket, std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent <= 0) give_up("send");
    text.remove_prefix(sent);
  }
}

std::string_view receive(int socket, std::vector<char>& buffer) {
  const ssize_t length = ::recv(socket, buffer.data(), buffer.size(), 0);
  return std::string_view(buffer.data(), length > 0 ? length : 0);
}

std::string read_line(int file) {
  std::string line;
  char c;
  while (::read(file, &c, 1) == 1 && c != '\n') line += c;
  if (line.empty()) give_up("no line comes");
  return line;
}

void raise_descriptor_limit() {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) give_up("getrlimit");
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) give_up("setrlimit");
}

Poll::Poll() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ == -1) give_up("epoll_create1");
}

Poll::~Poll() { ::close(epoll_); }

void Poll::add(int socket, unsigned int key) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.u32 = key;
  if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0) give_up("epoll_ctl");
}

/// Whether one of them can be read.
bool Poll::ask(int timeout) {
  std::array<epoll_event, 128> events;
  const int count = ::epoll_wait(epoll_, events.data(), events.size(), timeout);
  if (count == -1 && errno != EINTR) give_up("epoll_wait");
  ready_.clear();
  for (int i = 0; i < count; ++i) ready_.push_back(events[i].data.u32);
  return count > 0;
}

const std::vector<unsigned int>& Poll::wait() {
  while (!ask(-1)) {
  }
  return ready_;
}

const std::vector<unsigned int>& Poll::spin() {
  constexpr int patience = 200;  // tries: some fifty microseconds
  for (int i = 0; i < patience; ++i) {
    if (ask(0)) return ready_;
  }
  return wait();
}
