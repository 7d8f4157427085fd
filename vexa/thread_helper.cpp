#include "vexa/thread_helper.h"

#include <ace/OS_NS_string.h>
#include <dlfcn.h>

#include <cerrno>

#include "vexa/log.h"

void set_thread_name(const char* name, ACE_thread_t thread) {
  constexpr int max_length = 15;  // Linux keeps 16 bytes, the terminator included
  typedef int (*Set_Name)(ACE_thread_t, const char*);
  const Set_Name set_name = reinterpret_cast<Set_Name>(::dlsym(RTLD_DEFAULT, "pthread_setname_np"));
  if (set_name == nullptr) return;

  int error = set_name(thread, name);
  if (error == ERANGE) {
    VEXA_WARNING("Thread name(%s) is too long, truncate to %d chars.\n", name, max_length);
    char cut[max_length + 1];
    ACE_OS::strsncpy(cut, name, sizeof cut);
    error = set_name(thread, cut);
  }
  if (error != 0) VEXA_ERROR("Failed to set thread name(%s): %d\n", name, error);
}
