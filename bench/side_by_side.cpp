#include "bench/side_by_side.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void pin(pid_t process, int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  if (::sched_setaffinity(process, sizeof set, &set) != 0) fail("sched_setaffinity");
}

double cpu_seconds(pid_t process) {
  clockid_t clock;
  timespec time;
  if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
    fail("clock_getcpuclockid");
  }
  return time.tv_sec + time.tv_nsec / 1e9;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void no_delay(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void raise_descriptor_limit() {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) fail("getrlimit");
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) fail("setrlimit");
}

namespace {

sockaddr_in loopback(unsigned short port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int listen_on_loopback(unsigned short& port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener, SOMAXCONN) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    fail("listen");
  }
  port = ntohs(address.sin_port);
  return listener;
}

}  // namespace

Bare_Server::Bare_Server(void (*serve)(int listener), int core) {
  const int listener = listen_on_loopback(port_);
  pid_ = ::fork();
  if (pid_ == -1) fail("fork");
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pin(0, core);
    serve(listener);
    ::_exit(0);
  }
  ::close(listener);
}

Bare_Server::~Bare_Server() {
  if (pid_ <= 0) return;  // -1 would be everybody
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

int Bare_Server::connect() const {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port_);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("connect");
  }
  return socket;
}

Poll::Poll() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ == -1) fail("epoll_create1");
}

Poll::~Poll() { ::close(epoll_); }

void Poll::add(int socket, unsigned int key) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.u32 = key;
  if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0) fail("epoll_ctl");
}

/// Whether one of them can be read.
bool Poll::ask(int timeout) {
  std::array<epoll_event, 128> events;
  const int count = ::epoll_wait(epoll_, events.data(), events.size(), timeout);
  if (count == -1 && errno != EINTR) fail("epoll_wait");
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
