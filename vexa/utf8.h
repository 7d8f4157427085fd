#pragma once

#include <cstddef>
#include <string>

#include "vexa/vexa_export.h"

namespace vexa {

/// How many bytes at the start of `text` are well-formed UTF-8 (RFC 3629: no overlong forms, no
/// surrogates, nothing above U+10FFFF).
VEXA_EXPORT std::size_t utf8_valid_prefix(const char* text, std::size_t length);

/// `text` with U+FFFD in place of each ill-formed sequence.
VEXA_EXPORT std::string utf8_repaired(const char* text, std::size_t length);

}  // namespace vexa
