#pragma once

#include <string_view>

namespace vexa {

/// The entry whose key is the longest prefix of `name` that ends at a boundary: `name` itself, or a
/// prefix that ends with `separator` or stands right before one. So "/a" is found by "/a", "/a/" or
/// "/a/b" but not by "/ab"; "/" is found by every name that starts with it. end() when there is
/// none. `Map` is ordered by std::less<>.
template <typename Map>
auto find_prefix(Map& map, std::string_view name, char separator) -> decltype(map.end()) {
  auto found = map.find(name);
  std::size_t cut = name.size();
  while (found == map.end() && cut > 0) {
    cut = name.rfind(separator, cut - 1);
    if (cut == std::string_view::npos) break;
    found = map.find(name.substr(0, cut + 1));
    if (found == map.end()) found = map.find(name.substr(0, cut));
  }
  return found;
}

}  // namespace vexa
