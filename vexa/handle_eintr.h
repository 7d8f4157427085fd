#pragma once

#include <cerrno>

/// Calls f() again as long as it returns a negative value with errno EINTR; gives the last result.
template <typename F>
auto handle_EINTR(F f) -> decltype(f()) {
  decltype(f()) result = f();
  while (result < 0 && errno == EINTR) result = f();
  return result;
}
