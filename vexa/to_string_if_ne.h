#pragma once

#include <string>

namespace vexa {

/// The number as `prefix` + digits + `suffix`, or "" when its digits are `text` itself. Shows the
/// operands of a failed check: "threads(0) <= 0", where the literal needs no value.
template <typename Number>
std::string to_string_if_ne(Number value, const char* text, const char* prefix,
                            const char* suffix) {
  const std::string digits = std::to_string(value);
  return digits == text ? std::string() : prefix + digits + suffix;
}

}  // namespace vexa
