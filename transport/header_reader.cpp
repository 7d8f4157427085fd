#include "transport/header_reader.h"

#include <strings.h>

#include <charconv>
#include <string_view>

namespace transport {

namespace {

constexpr std::size_t max_header = 4u << 10;

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

void Header_Reader::begin() {
  line_.clear();
  read_ = 0;
  content_length_ = 0;
  have_length_ = false;
}

Header_Reader::Outcome Header_Reader::feed(const char* data, std::size_t length,
                                           std::size_t& used) {
  for (used = 0; used < length;) {
    const char c = data[used++];
    if (++read_ > max_header) return BAD;
    if (c != '\n') {
      line_ += c;
      continue;
    }
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    const Outcome outcome = line();
    line_.clear();
    if (outcome != MORE) return outcome;
  }
  return MORE;
}

Header_Reader::Outcome Header_Reader::line() {
  if (line_.empty()) return have_length_ ? COMPLETE : BAD;
  const std::size_t colon = line_.find(':');
  if (colon == std::string::npos) return BAD;
  constexpr std::string_view wanted = "Content-Length";
  if (colon != wanted.size() || strncasecmp(line_.data(), wanted.data(), colon) != 0) return MORE;
  const std::string_view value = trimmed(std::string_view(line_).substr(colon + 1));
  const std::from_chars_result result =
      std::from_chars(value.data(), value.data() + value.size(), content_length_);
  // A length that comes twice could be read in two ways.
  if (value.empty() || result.ec != std::errc() || result.ptr != value.data() + value.size() ||
      have_length_) {
    return BAD;
  }
  have_length_ = true;
  return MORE;
}

}  // namespace transport
