#pragma once

#include <cstddef>

#include "json_spirit/json_spirit_value.h"
#include "vexa/vexa_export.h"

/// Reads a JSON number's text into `value`: a signed 64-bit integer, else an unsigned one, else a
/// real. Integer text that fits neither becomes a real. False with a null when a double cannot hold
/// the number (1e400) or the text is none.
VEXA_EXPORT bool read_number(const char* text, std::size_t length, json_spirit::Value& value);

/// The value that read_number() reads.
inline json_spirit::Value number_to_value(const char* text, std::size_t length) {
  json_spirit::Value value;
  read_number(text, length, value);
  return value;
}
