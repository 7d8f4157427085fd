#include "bench/give_up.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

void give_up(const char* what) {
  const int reason = errno;
  std::fprintf(stderr, "the benchmark is broken: %s%s%s\n", what, reason == 0 ? "" : ": ",
               reason == 0 ? "" : std::strerror(reason));
  ::_exit(1);  // other threads may be anywhere
}
