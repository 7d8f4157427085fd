#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "bench/sockets.h"

/// The floor of a server: a process, pinned to a core, that serves a loopback listener until this
/// object goes, and does no more than the sockets ask for.
class Bare_Server {
public:
  /// `serve` gets the listener in the new process and does not come back.
  Bare_Server(const std::function<void(int listener)>& serve, int core);
  ~Bare_Server();
  Bare_Server(const Bare_Server&) = delete;
  Bare_Server& operator=(const Bare_Server&) = delete;

  int connect() const { return connect_to(port_); }
  pid_t pid() const { return pid_; }
  unsigned short port() const { return port_; }

private:
  unsigned short port_ = 0;
  pid_t pid_ = -1;
};

/// Serves by counting requests: each ends in `last_byte`, which stands nowhere else in it, and gets
/// `answer`. Those of one read are answered in one write.
[[noreturn]] void answer_each(int listener, char last_byte, const std::string& answer);
