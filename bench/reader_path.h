#pragma once

#include <cstddef>
#include <string>

/// One message through the reader, in pieces of `piece` bytes (0: whole), to its object. Each gives
/// the number of bytes. The floor is bare_yajl::parse().
namespace reader_path {

std::size_t ours(const std::string& text, std::size_t piece);

/// With the params handed to a filter as events, which counts them; no tree of them is built.
std::size_t filtered(const std::string& text, std::size_t piece);

/// RapidJSON's events of the whole text, ignored; numbers as text and UTF-8 checked, as with yajl.
/// What a faster parser would give.
std::size_t rapidjson(const std::string& text);

}  // namespace reader_path
