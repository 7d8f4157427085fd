#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "bench/sockets.h"

/// The reference host in a process of its own, with the sample configuration, for as long as the
/// object lives. Failures end the benchmark with a message.
class Host_Under_Test {
public:
  explicit Host_Under_Test(const std::vector<std::string>& options);
  ~Host_Under_Test();
  Host_Under_Test(const Host_Under_Test&) = delete;
  Host_Under_Test& operator=(const Host_Under_Test&) = delete;

  int connect() const { return connect_to(port_); }
  pid_t pid() const { return pid_; }
  /// Of the listener that the options name last; of TCP where they name none.
  unsigned short port() const { return port_; }
  std::size_t resident_bytes() const;
  std::size_t descriptors() const;

private:
  pid_t pid_ = -1;
  unsigned short port_ = 0;
};
