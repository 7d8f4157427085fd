#include "vexa/http_socket.h"

#include <ace/SOCK_Connector.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>

#include "vexa/http_session_factory.h"
#include "vexa/log.h"

// Waiting to receive costs no call of its own: the socket blocks, and SO_RCVTIMEO ends it. Sending
// does not block but polls when the socket is full, since a blocking send that was taken in part
// would begin its time-out anew without telling.

namespace vexa {

namespace {

constexpr int answered_patience = 1000;  // milliseconds

std::int64_t now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

struct Free_Addresses {
  void operator()(addrinfo* addresses) const { ::freeaddrinfo(addresses); }
};
typedef std::unique_ptr<addrinfo, Free_Addresses> Addresses;

/// The addresses of the host, null with errno and an error line.
Addresses resolve(const HTTP_Peer& peer) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  hints.ai_family = peer.families == HTTP_SESSION_IPV4   ? AF_INET
                    : peer.families == HTTP_SESSION_IPV6 ? AF_INET6
                                                         : AF_UNSPEC;
  addrinfo* found = nullptr;
  const int result =
      ::getaddrinfo(peer.host.c_str(), std::to_string(peer.port).c_str(), &hints, &found);
  if (result != 0) {
    if (result != EAI_SYSTEM) errno = result == EAI_MEMORY ? ENOMEM : EHOSTUNREACH;
    VEXA_ERROR("Failed to resolve %C, %C\n", peer.host.c_str(), ::gai_strerror(result));
    found = nullptr;
  }
  return Addresses(found);
}

ACE_INET_Addr address_of(const addrinfo& found) {
  return ACE_INET_Addr(reinterpret_cast<const sockaddr_in*>(found.ai_addr),
                       static_cast<int>(found.ai_addrlen));
}

}  // namespace

bool http_local_address(const char* text, ACE_INET_Addr& address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  addrinfo* found = nullptr;
  if (::getaddrinfo(text, nullptr, &hints, &found) != 0) return false;
  address = address_of(*Addresses(found));
  return true;
}

HTTP_Socket::~HTTP_Socket() { stream_.close(); }

int HTTP_Socket::connect(const HTTP_Peer& peer) {
  send_timeout_ = peer.send_timeout;
  recv_timeout_ = peer.recv_timeout;
  const Addresses addresses = resolve(peer);
  if (!addresses) return -1;
  errno = EAFNOSUPPORT;  // when every address is of another family than the local one
  for (const addrinfo* a = addresses.get(); a != nullptr; a = a->ai_next) {
    const ACE_INET_Addr address = address_of(*a);
    if (peer.has_local && peer.local.get_type() != address.get_type()) continue;
    if (connect_to(peer, address) == 0) return 0;
  }
  VEXA_ERROR("Failed to connect to %C:%d, errno=%d, %m\n", peer.host.c_str(), peer.port, errno);
  return -1;
}

int HTTP_Socket::connect_to(const HTTP_Peer& peer, const ACE_INET_Addr& address) {
  const ACE_Addr& local = peer.has_local ? peer.local : ACE_Addr::sap_any;
  ACE_SOCK_Connector connector;
  // ACE's own wait knows nothing of interruptions.
  const bool connected =
      connector.connect(stream_, address, &ACE_Time_Value::zero, local) == 0 ||
      ((errno == EWOULDBLOCK || errno == EINPROGRESS) && finish_connect(peer.conn_timeout) == 0);
  const int handle = stream_.get_handle();
  timeval limit{};
  limit.tv_sec = recv_timeout_ / 1000;
  limit.tv_usec = recv_timeout_ % 1000 * 1000L;
  const int on = 1;
  if (connected && stream_.disable(ACE_NONBLOCK) == 0 &&
      ::fcntl(handle, F_SETFD, FD_CLOEXEC) == 0 &&
      ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 &&
      ::setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0) {
    return 0;
  }
  const int error = errno;
  stream_.close();
  errno = error;
  return -1;
}

int HTTP_Socket::finish_connect(int timeout) {
  if (wait(POLLOUT, timeout) == -1) return -1;
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(stream_.get_handle(), SOL_SOCKET, SO_ERROR, &error, &size) == -1) return -1;
  errno = error;
  return error == 0 ? 0 : -1;
}

/// 0 when one of `events`, or a failure that the next call will tell, is there in time.
int HTTP_Socket::wait(short events, int timeout) const {
  if (!may_wait_) {
    errno = EAGAIN;
    return -1;
  }
  const std::int64_t end = deadline_ != 0 ? deadline_ : timeout != 0 ? now() + timeout : 0;
  for (;;) {
    pollfd poll{stream_.get_handle(), events, 0};
    const std::int64_t left = end == 0 ? -1 : std::max<std::int64_t>(end - now(), 0);
    const int ready = ::poll(&poll, 1, static_cast<int>(left));
    if (ready > 0) return 0;
    if (ready == 0) errno = ETIMEDOUT;
    if (errno != EINTR) return -1;
  }
}

/// Until more can be sent. A server that has answered and takes nothing for a while is not waited
/// for longer: EPIPE.
int HTTP_Socket::wait_to_send() const {
  if (opaque_) return wait(POLLOUT, send_timeout_);
  if (wait(POLLOUT | POLLIN, send_timeout_) == -1) return -1;
  if (!answered()) return wait(POLLOUT, send_timeout_);
  if (wait(POLLOUT, answered_patience) == 0) return 0;
  if (errno == ETIMEDOUT) errno = EPIPE;
  return -1;
}

ssize_t HTTP_Socket::recv(void* data, std::size_t size) {
  if (deadline_ != 0 && may_wait_ && wait(POLLIN, 0) == -1) return -1;
  for (;;) {
    const ssize_t got = ::recv(stream_.get_handle(), data, size, may_wait_ ? 0 : MSG_DONTWAIT);
    if (got >= 0) return got;
    // The kernel would begin the time-out anew after each signal.
    if (errno == EINTR && wait(POLLIN, recv_timeout_) == 0) continue;
    if (errno == EAGAIN && may_wait_) errno = ETIMEDOUT;
    return -1;
  }
}

int HTTP_Socket::send(iovec* parts, int count) {
  for (;;) {
    while (count > 0 && parts->iov_len == 0) {
      ++parts;
      --count;
    }
    if (count == 0) return 0;
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<std::size_t>(count);
    const ssize_t taken = ::sendmsg(stream_.get_handle(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (taken == -1) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN || wait_to_send() == -1) return -1;
      continue;
    }
    sent_ += static_cast<std::uint64_t>(taken);
    for (std::size_t rest = static_cast<std::size_t>(taken); rest != 0;) {
      const std::size_t part = std::min(rest, parts->iov_len);
      parts->iov_base = static_cast<char*>(parts->iov_base) + part;
      parts->iov_len -= part;
      rest -= part;
      if (rest != 0) {
        ++parts;
        --count;
      }
    }
  }
}

bool HTTP_Socket::quiet() const {
  char byte;
  return ::recv(stream_.get_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == -1 && errno == EAGAIN;
}

bool HTTP_Socket::readable() const {
  char byte;
  return ::recv(stream_.get_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
}

/// Whether what has arrived begins a response that is not an interim one.
bool HTTP_Socket::answered() const {
  char head[10];  // "HTTP/1.1 1"
  const ssize_t got = ::recv(stream_.get_handle(), head, sizeof head, MSG_PEEK | MSG_DONTWAIT);
  return got == static_cast<ssize_t>(sizeof head) && head[sizeof head - 1] != '1';
}

void HTTP_Socket::limit(int milliseconds) {
  deadline_ = milliseconds == 0 ? 0 : now() + milliseconds;
}

}  // namespace vexa
