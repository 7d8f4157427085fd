// The calls on stream sockets, interposed in the whole process: they work as ever while no fault is
// armed.

#include "tests/faults/socket_faults.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace {

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool is_stream(int descriptor) {
  const int before = errno;
  int value = 0;
  socklen_t size = sizeof value;
  const bool stream =
      ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &value, &size) == 0 && value == SOCK_STREAM;
  errno = before;
  return stream;
}

/// What a call is to meet: 0 nothing.
int fault_of(Socket_Fault::Call call, int descriptor) {
  Socket_Fault* const fault = armed_socket_fault();
  if (fault == nullptr || fault->call != call || !is_stream(descriptor)) return 0;
  if (fault->spared > 0) {
    --fault->spared;
    return 0;
  }
  if (fault->left <= 0) return 0;
  --fault->left;
  ++fault->hits;
  return fault->error;
}

/// `one` moves one byte, `all` as many as may be.
template <typename One, typename All>
ssize_t transfer(Socket_Fault::Call call, int descriptor, One one, All all) {
  const int fault = fault_of(call, descriptor);
  if (fault == 0) return all();
  if (fault == Socket_Fault::ONE_BYTE) return one();
  if (fault == Socket_Fault::END) return 0;
  errno = fault;
  return -1;
}

/// For the calls that take a vector: the rest of it is left out.
template <typename Call>
ssize_t one_byte(const msghdr& message, Call call) {
  iovec byte{nullptr, 0};
  for (std::size_t i = 0; i < message.msg_iovlen && byte.iov_len == 0; ++i) {
    if (message.msg_iov[i].iov_len > 0) byte = {message.msg_iov[i].iov_base, 1};
  }
  msghdr less = message;
  less.msg_iov = &byte;
  less.msg_iovlen = 1;
  return call(less);
}

}  // namespace

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED int accept(int listener, sockaddr* address, socklen_t* size) {
  typedef int (*Accept)(int, sockaddr*, socklen_t*);
  static const Accept real = next<Accept>("accept");
  const int fault = fault_of(Socket_Fault::ACCEPT, listener);
  if (fault == 0) return real(listener, address, size);
  errno = fault;
  return -1;
}

INTERPOSED int connect(int descriptor, const sockaddr* address, socklen_t size) {
  typedef int (*Connect)(int, const sockaddr*, socklen_t);
  static const Connect real = next<Connect>("connect");
  const int fault = fault_of(Socket_Fault::CONNECT, descriptor);
  if (fault == 0) return real(descriptor, address, size);
  errno = fault;
  return -1;
}

INTERPOSED ssize_t recv(int descriptor, void* data, std::size_t size, int flags) {
  typedef ssize_t (*Recv)(int, void*, std::size_t, int);
  static const Recv real = next<Recv>("recv");
  return transfer(
      Socket_Fault::READ, descriptor, [&] { return real(descriptor, data, 1, flags); },
      [&] { return real(descriptor, data, size, flags); });
}

INTERPOSED ssize_t send(int descriptor, const void* data, std::size_t size, int flags) {
  typedef ssize_t (*Send)(int, const void*, std::size_t, int);
  static const Send real = next<Send>("send");
  return transfer(
      Socket_Fault::WRITE, descriptor, [&] { return real(descriptor, data, 1, flags); },
      [&] { return real(descriptor, data, size, flags); });
}

INTERPOSED ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  typedef ssize_t (*Send)(int, const msghdr*, int);
  static const Send real = next<Send>("sendmsg");
  const auto one = [&](const msghdr& less) { return real(descriptor, &less, flags); };
  return transfer(
      Socket_Fault::WRITE, descriptor, [&] { return one_byte(*message, one); },
      [&] { return real(descriptor, message, flags); });
}
