#pragma once

#include <cstddef>
#include <string>

/// The path that every request takes, in process and on one thread: bytes in, bytes out. Ours goes
/// through reader, dispatcher, handler and writer; the floor parses with callbacks that do nothing
/// and writes a fixed answer with yajl's generator, each message with new handles.
namespace request_path {

/// Registers the bench's handlers in the process's request map, once.
void set_up();

/// The length of the answer.
std::size_t floor(const std::string& request);
std::size_t ours(const std::string& request);

}  // namespace request_path
