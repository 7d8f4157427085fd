#include <ace/DLL_Manager.h>

#include "vexa/dll_object_manager_t.h"

namespace vexa {

int open_dll(ACE_DLL& dll, const char* path, int mode) { return dll.open(path, mode, false); }

void close_dll(const char* path) { ACE_DLL_Manager::instance(1024)->close_dll(path); }

const char* dll_error(const ACE_DLL& dll) {
  const char* const text = dll.error();
  return text != nullptr && *text != '\0' ? text : "unknown error";
}

}  // namespace vexa
