#include "http/file_in_root.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "vexa/handle_eintr.h"
#include "vexa/http_text.h"

namespace {

// Reading never makes a terminal ours, nor waits for the other end of a FIFO.
constexpr int read_flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
constexpr int step_flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int open_beneath(int root, const char* path) {
  struct open_how how = {};
  how.flags = static_cast<std::uint64_t>(read_flags);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  // EAGAIN: something was renamed meanwhile, and the kernel could not tell whether it led out.
  constexpr int attempts = 4;
  int descriptor = -1;
  for (int i = 0; i < attempts; ++i) {
    descriptor = static_cast<int>(
        handle_EINTR([&] { return ::syscall(SYS_openat2, root, path, &how, sizeof how); }));
    if (descriptor != -1 || errno != EAGAIN) break;
  }
  return descriptor;
}

}  // namespace

http::Descriptor::~Descriptor() { reset(-1); }

int http::Descriptor::release() { return std::exchange(number_, -1); }

void http::Descriptor::reset(int number) {
  const int error = errno;
  if (number_ >= 0) ::close(number_);
  number_ = number;
  errno = error;
}

int http::open_root(const char* path) {
  return handle_EINTR([&] { return ::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

int http::open_in_root(int root, const char* path) {
  const int descriptor = open_beneath(root, path);
  // A sandbox that does not know the call says EPERM.
  if (descriptor != -1 || (errno != ENOSYS && errno != EPERM)) return descriptor;
  return open_by_steps(root, path);
}

int http::open_by_steps(int root, const char* path) {
  try {
    std::string_view rest(path);
    if (rest.empty() || rest.front() == '/') {
      errno = rest.empty() ? ENOENT : EXDEV;
      return -1;
    }
    Descriptor outer(-1);  // the folder that the walk has reached; none while that is the root
    int folder = root;
    for (;;) {
      const std::string name(vexa::take_item(rest, '/'));
      if (name == "..") {
        errno = EXDEV;
        return -1;
      }
      const int flags = rest.empty() ? read_flags | O_NOFOLLOW : step_flags;
      const int next = handle_EINTR([&] { return ::openat(folder, name.c_str(), flags); });
      if (next == -1 || rest.empty()) return next;
      outer.reset(next);
      folder = next;
    }
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}
