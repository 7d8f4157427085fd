#pragma once

#include <ace/Null_Mutex.h>
#include <ace/Singleton.h>

/// The one T of the process. Only for the .cpp that defines T's own instance() and
/// close_instance(): used in a header, every library that includes it would get an object of its
/// own. Creation takes no lock: the first call must come before other threads do.
template <typename T>
using Singleton_T = ACE_Unmanaged_Singleton<T, ACE_Null_Mutex>;
