#pragma once

#include <string>

#include "vexa/vexa_export.h"

/// A new random UUID (RFC 9562, version 4) as 36 characters, in upper case when `upper`. Any
/// thread.
VEXA_EXPORT std::string uuid_string(bool upper);
