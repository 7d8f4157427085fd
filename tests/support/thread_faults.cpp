#include "tests/support/thread_faults.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <limits>

namespace {

constexpr int unlimited = std::numeric_limits<int>::max();
std::atomic<int> creations_left{unlimited};

}  // namespace

Failing_Thread_Creation::Failing_Thread_Creation(int allowed) { creations_left = allowed; }
Failing_Thread_Creation::~Failing_Thread_Creation() { creations_left = unlimited; }

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attr,
                                                                     void* (*run)(void*),
                                                                     void* arg) {
  typedef int (*Create)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const Create real = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
  if (creations_left != unlimited && creations_left-- <= 0) return EAGAIN;
  return real(thread, attr, run, arg);
}
