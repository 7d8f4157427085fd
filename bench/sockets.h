#pragma once

#include <string>
#include <string_view>
#include <vector>

// Blocking sockets on the loopback interface, without Nagle's delay. Failures end the benchmark.

int listen_on_loopback(unsigned short& port);
int accept_from(int listener);
int connect_to(unsigned short port);

void send_all(int socket, std::string_view text);
/// What one read brings; `buffer` holds it until the next. Empty at the end of the stream.
std::string_view receive(int socket, std::vector<char>& buffer);
/// Up to the next line feed, which is left out; of a pipe as well.
std::string read_line(int file);

/// As many descriptors as the system allows this process, and those it starts.
void raise_descriptor_limit();

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
