#include "vexa/get_env_r.h"

#include <cerrno>
#include <cstdlib>
#include <new>

std::string get_env_r(const char* name) noexcept {
  try {
    const char* const value = std::getenv(name);
    if (value != nullptr) return value;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
  return std::string();
}
