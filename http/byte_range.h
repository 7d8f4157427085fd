#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace http {

/// Bytes of a file, as a Range field asks for them (RFC 9110 section 14.2).
struct Byte_Range {
  enum Kind {
    WHOLE,         ///< the field does not count: another unit, no range, or several of them
    PART,          ///< offset and length say which
    UNSATISFIABLE  ///< a range that the file does not have
  };
  Kind kind = WHOLE;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;  ///< of a PART at least 1
};

/// What `text`, the field's value, asks of a file of `size` bytes.
Byte_Range parse_byte_range(std::string_view text, std::uint64_t size);

/// The Content-Range field of a PART, and of a file that has no such range. Throw std::bad_alloc.
std::string content_range(const Byte_Range& range, std::uint64_t size);
std::string content_range(std::uint64_t size);

}  // namespace http
