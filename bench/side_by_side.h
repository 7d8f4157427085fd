#pragma once

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

// What the benchmarks of the host's sockets share: a floor that does no more than the sockets ask
// for, cores, and the CPU time of a process. Failures end the benchmark with a message.

[[noreturn]] void fail(const char* what);

/// Binds a process, and what it starts from now on, to one core; 0 is the calling process.
void pin(pid_t process, int core);

/// The CPU time that a process has taken so far, of all its threads.
double cpu_seconds(pid_t process);

double median(std::vector<double> values);

void no_delay(int socket);

/// As many descriptors as the system allows this process, and those it starts.
void raise_descriptor_limit();

/// The floor: a process, pinned to a core, that serves a loopback listener until this object goes.
class Bare_Server {
public:
  /// `serve` gets the listener in the new process and does not come back.
  Bare_Server(void (*serve)(int listener), int core);
  ~Bare_Server();
  Bare_Server(const Bare_Server&) = delete;
  Bare_Server& operator=(const Bare_Server&) = delete;

  /// A new connection, blocking.
  int connect() const;
  pid_t pid() const { return pid_; }
  unsigned short port() const { return port_; }

private:
  unsigned short port_ = 0;
  pid_t pid_ = -1;
};

/// Sockets of which one wait tells who can be read.
class Poll {
public:
  Poll();
  ~Poll();
  Poll(const Poll&) = delete;
  Poll& operator=(const Poll&) = delete;

  void add(int socket, unsigned int key);
  /// The keys of the sockets that can be read, until the next call; sleeps until there is one.
  const std::vector<unsigned int>& wait();
  /// The same, but asks a while before it sleeps, so that no server pays for waking its callers:
  /// else the slower one would pay more often.
  const std::vector<unsigned int>& spin();

private:
  bool ask(int timeout);

  const int epoll_;
  std::vector<unsigned int> ready_;
};
