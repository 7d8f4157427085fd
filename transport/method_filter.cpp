#include "transport/method_filter.h"

#include <algorithm>

namespace transport {

namespace {

/// Each `*` takes as little as it can; a mismatch gives the last one a byte more.
bool matches(std::string_view pattern, std::string_view text) {
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = std::string_view::npos;
  std::size_t taken = 0;  // where the text behind the last `*` was tried
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      taken = t;
    } else if (p < pattern.size() && pattern[p] == text[t]) {
      ++p;
      ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool any_matches(const std::vector<std::string>& patterns, std::string_view text) {
  return std::any_of(patterns.begin(), patterns.end(),
                     [=](const std::string& pattern) { return matches(pattern, text); });
}

}  // namespace

bool Method_Filter::passes(std::string_view method) const {
  return (allow.empty() || any_matches(allow, method)) && !any_matches(deny, method);
}

}  // namespace transport
