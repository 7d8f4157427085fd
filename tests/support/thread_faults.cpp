#include "tests/support/thread_faults.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <limits>

namespace {

constexpr int unlimited = std::numeric_limits<int>::max();
std::atomic<int> creations_left{unlimited};
std::atomic<int> naming_error{0};

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

Failing_Thread_Creation::Failing_Thread_Creation(int allowed) { creations_left = allowed; }
Failing_Thread_Creation::~Failing_Thread_Creation() { creations_left = unlimited; }

Failing_Thread_Naming::Failing_Thread_Naming(int error) { naming_error = error; }
Failing_Thread_Naming::~Failing_Thread_Naming() { naming_error = 0; }

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attr,
                                                                     void* (*run)(void*),
                                                                     void* arg) {
  typedef int (*Create)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  if (creations_left != unlimited && creations_left-- <= 0) return EAGAIN;
  return next<Create>("pthread_create")(thread, attr, run, arg);
}

extern "C" __attribute__((visibility("default"))) int pthread_setname_np(pthread_t thread,
                                                                         const char* name) {
  typedef int (*Set_Name)(pthread_t, const char*);
  if (naming_error != 0) return naming_error;
  return next<Set_Name>("pthread_setname_np")(thread, name);
}
