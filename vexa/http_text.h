#pragma once

#include <cstddef>
#include <string_view>

namespace vexa {

/// ASCII only, whatever the locale.
constexpr char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

inline bool ascii_iequal(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && ascii_lower(a[i]) != ascii_lower(b[i])) return false;
  }
  return true;
}

/// Without the blanks and tabs at both ends.
inline std::string_view trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Takes the text up to `separator` off the front of `rest`, and the separator with it.
inline std::string_view take_item(std::string_view& rest, char separator) {
  const std::size_t end = rest.find(separator);
  const std::string_view item = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return item;
}

}  // namespace vexa
