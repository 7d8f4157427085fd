#pragma once

#include <cstddef>

#include "json_spirit/json_spirit_value.h"
#include "vexa/vexa_export.h"

/// The value of a JSON number's text: a signed 64-bit integer, else an unsigned one, else a real.
/// Integer text that fits neither becomes a real. Null when a double cannot hold the number (1e400)
/// or the text is none.
VEXA_EXPORT json_spirit::Value number_to_value(const char* text, std::size_t length);
