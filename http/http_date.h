#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace http {

/// A time as header fields carry it: "Sun, 06 Nov 1994 08:49:37 GMT". Throws std::bad_alloc.
std::string http_date(std::time_t when);

/// Reads any of the three forms (RFC 9110 section 5.6.7); nothing when it is none of them, or no
/// date. Neither the locale nor the day's name matters. A year of two digits counts as the one that
/// lies at most 50 years ahead of `now`.
std::optional<std::time_t> parse_http_date(std::string_view text, std::time_t now);

}  // namespace http
