#pragma once

#include <cstddef>
#include <utility>

#include "json_spirit/json_spirit_value.h"

/// An array in an array, and so on: `depth` of them.
inline json_spirit::Value nested_arrays(std::size_t depth) {
  json_spirit::Value value{json_spirit::Array()};
  while (--depth > 0) {
    json_spirit::Array outer;
    outer.push_back(std::move(value));
    value = json_spirit::Value(std::move(outer));
  }
  return value;
}
