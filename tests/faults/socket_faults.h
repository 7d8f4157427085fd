#pragma once

#include <atomic>

/// One fault of a socket call, of this process or, in memory that both map, of another.
struct Socket_Fault {
  enum Call { NONE, ACCEPT, READ, WRITE, CONNECT };
  /// What happens in place of an errno.
  enum Other { ONE_BYTE = -1, END = -2 };

  std::atomic<int> call{NONE};
  std::atomic<int> error{0};   // an errno, or one of Other
  std::atomic<int> spared{0};  // so many calls succeed first
  std::atomic<int> left{0};    // then so many fail
  std::atomic<int> hits{0};    // so many have failed

  void arm(Call which, int what, int after = 0, int times = 1) {
    call = NONE;
    error = what;
    spared = after;
    left = times;
    hits = 0;
    call = which;
  }
};

/// The fault that calls of this thread may meet, or null. A program that links the interposed calls
/// defines it.
Socket_Fault* armed_socket_fault();
