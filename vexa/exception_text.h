#pragma once

#include "vexa/vexa_export.h"

namespace vexa {

/// What the exception that is being handled says. Only inside a catch block, whose end also ends
/// the life of the text.
VEXA_EXPORT const char* exception_text() noexcept;

}  // namespace vexa
