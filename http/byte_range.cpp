#include "http/byte_range.h"

#include <algorithm>
#include <limits>

#include "vexa/http_text.h"

namespace {

enum class Number { none, good, bad };

/// Reads decimal digits; what does not fit is the largest number, and larger than any file.
Number read_number(std::string_view text, std::uint64_t& number) {
  if (text.empty()) return Number::none;
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return Number::bad;
    const std::uint64_t digit = static_cast<std::uint64_t>(c - '0');
    number = number > (most - digit) / 10 ? most : number * 10 + digit;
  }
  return Number::good;
}

http::Byte_Range part(std::uint64_t offset, std::uint64_t length) {
  return {http::Byte_Range::PART, offset, length};
}

const http::Byte_Range whole = {http::Byte_Range::WHOLE, 0, 0};
const http::Byte_Range unsatisfiable = {http::Byte_Range::UNSATISFIABLE, 0, 0};

http::Byte_Range last_bytes(std::uint64_t count, std::uint64_t size) {
  if (count == 0) return unsatisfiable;
  if (size == 0) return whole;  // satisfied, but no Content-Range could say by what
  const std::uint64_t length = std::min(count, size);
  return part(size - length, length);
}

}  // namespace

http::Byte_Range http::parse_byte_range(std::string_view text, std::uint64_t size) {
  const std::string_view unit = vexa::take_item(text, '=');
  if (!vexa::ascii_iequal(vexa::trim(unit), "bytes")) return whole;
  text = vexa::trim(text);
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return whole;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  const Number has_first = read_number(text.substr(0, dash), first);
  const Number has_last = read_number(text.substr(dash + 1), last);
  if (has_first == Number::bad || has_last == Number::bad) return whole;
  if (has_first == Number::none) {
    return has_last == Number::none ? whole : last_bytes(last, size);
  }
  if (has_last == Number::good && last < first) return whole;
  if (first >= size) return unsatisfiable;
  if (has_last == Number::none || last >= size) last = size - 1;
  return part(first, last - first + 1);
}

std::string http::content_range(const Byte_Range& range, std::uint64_t size) {
  return "bytes " + std::to_string(range.offset) + "-" +
         std::to_string(range.offset + range.length - 1) + "/" + std::to_string(size);
}

std::string http::content_range(std::uint64_t size) { return "bytes */" + std::to_string(size); }
