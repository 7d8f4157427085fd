#pragma once

#include <fcntl.h>
#include <unistd.h>

/// Opens /dev/null as those of the descriptors 0 to 2 that are closed, so that no socket becomes
/// what the process takes for its standard output. First thing in main().
inline void hold_standard_descriptors() {
  int descriptor;
  do {
    descriptor = ::open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) ::close(descriptor);
}
