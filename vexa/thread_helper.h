#pragma once

#include <ace/os_include/os_pthread.h>

#include "vexa/vexa_export.h"

/// Names a thread of this process, as debuggers and ps show it. A name over 15 characters is cut,
/// with a warning; any other failure is logged at error priority and leaves the thread as it was.
VEXA_EXPORT void set_thread_name(const char* name, ACE_thread_t thread);
