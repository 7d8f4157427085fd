#pragma once

#include <string>

#include "vexa/vexa_export.h"

/// A copy of the environment variable's value. Empty when it is unset, and, with errno ENOMEM, when
/// there is no memory for the copy. Any thread, as long as none changes the environment.
VEXA_EXPORT std::string get_env_r(const char* name) noexcept;
