#pragma once

#include <cstddef>
#include <string>

#include "json_rpc/json_rpc_object.h"

/// Messages as text, each with a new generator of yajl's, into a string that has the room. All give
/// the number of bytes.
namespace writer_path {

/// The message of `text`.
JSON_RPC_Object_var message_of(const std::string& text);

/// A message object through JSON_RPC_Writer. Its floor is bare_yajl::generate() of its events.
std::size_t ours(const JSON_RPC_Object& message);

/// A request whose params, an array of `records` objects, are written without being held: by a
/// JSON_Generator, and by calls of yajl's generator.
std::size_t generated(unsigned int records);
std::size_t generated_floor(unsigned int records);

}  // namespace writer_path
