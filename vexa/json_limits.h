#pragma once

#include <cstddef>

namespace vexa {

/// How many containers of one JSON value may be open at once, wherever a value is read or written.
/// yajl's generator carries 127 levels; a value stands at most two below the top of its message (an
/// error's data), so a value that was read can always be written back with a message around it.
constexpr std::size_t max_value_depth = 124;

}  // namespace vexa
