#pragma once

#include <ace/Refcounted_Auto_Ptr.h>

#include <cerrno>
#include <new>

namespace vexa {

/// Makes `out` the owner of `object`, which may be the result of a failed nothrow allocation.
/// ACE throws, and forgets the object, when it cannot allocate its counter; here the object is then
/// destroyed. False with errno ENOMEM on either failure, `out` unchanged.
template <typename Handle, typename T>
bool adopt(Handle& out, T* object) noexcept {
  if (object == nullptr) {
    errno = ENOMEM;
    return false;
  }
  try {
    out.reset(object);
    return true;
  } catch (const std::bad_alloc&) {
    delete object;
    errno = ENOMEM;
    return false;
  }
}

}  // namespace vexa
