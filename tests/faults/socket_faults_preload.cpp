// Loaded into a program under test before its libraries: the fault lies in the file that the
// environment variable SOCKET_FAULT names, which the test maps too.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/faults/socket_faults.h"

namespace {

Socket_Fault* map_fault() {
  const char* const path = std::getenv("SOCKET_FAULT");
  const int file = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
  if (file == -1) return nullptr;
  void* const place =
      ::mmap(nullptr, sizeof(Socket_Fault), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  return place == MAP_FAILED ? nullptr : static_cast<Socket_Fault*>(place);
}

}  // namespace

Socket_Fault* armed_socket_fault() {
  static Socket_Fault* const fault = map_fault();
  return fault;
}
