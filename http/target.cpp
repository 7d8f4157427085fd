#include "http/target.h"

#include <iterator>
#include <new>
#include <utility>

#include "vexa/http_text.h"
#include "vexa/http_url_encode.h"

namespace {

constexpr int bad_request = 400;
constexpr int unavailable = 503;

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = vexa::ascii_lower(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Appends the decoded text; false for a bad escape, NUL or an escaped '/'.
bool decode(std::string_view text, std::string& out) {
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (text.size() - i < 3) return false;
    const int high = hex_digit(text[i + 1]);
    const int low = hex_digit(text[i + 2]);
    if (high < 0 || low < 0) return false;
    const char byte = static_cast<char>(high * 16 + low);
    if (byte == '\0' || byte == '/') return false;
    out += byte;
    i += 2;
  }
  return true;
}

bool is_sendable(std::string_view text) {
  for (const char c : text) {
    if (c <= ' ' || c > '~' || c == '#') return false;  // a char above ASCII is negative
  }
  return true;
}

/// Takes "http://host" off the front of `text`; false when something else stands there.
bool take_origin(std::string_view& text) {
  const std::size_t colon = text.find("://");
  if (colon == std::string_view::npos) return false;
  const std::string_view scheme = text.substr(0, colon);
  if (!vexa::ascii_iequal(scheme, "http") && !vexa::ascii_iequal(scheme, "https")) return false;
  text.remove_prefix(colon + 3);
  const std::size_t host = text.find_first_of("/?");
  if (text.empty() || host == 0) return false;
  text.remove_prefix(host == std::string_view::npos ? text.size() : host);
  return true;
}

int parse(std::string_view text, http::Target& target) {
  http::Target found;
  if (text == "*") {
    found.path = "*";
    target = std::move(found);
    return 0;
  }
  if (text.empty() || !is_sendable(text)) return bad_request;
  if (text.front() != '/' && !take_origin(text)) return bad_request;
  const std::string_view path = vexa::take_item(text, '?');
  std::string decoded;
  if (!decode(path, decoded)) return bad_request;
  found.path = http::normal_path(decoded);
  found.query = text;
  target = std::move(found);
  return 0;
}

}  // namespace

int http::parse_target(std::string_view text, Target& target) {
  try {
    return parse(text, target);
  } catch (const std::bad_alloc&) {
    return unavailable;
  }
}

std::string http::normal_path(std::string_view path) {
  std::string normal = "/";
  normal.reserve(path.size() + 2);
  while (!path.empty()) {
    const bool last = path.find('/') == std::string_view::npos;
    const std::string_view segment = vexa::take_item(path, '/');
    if (segment == "..") {
      if (normal.size() > 1) normal.erase(normal.rfind('/', normal.size() - 2) + 1);
    } else if (!segment.empty() && segment != ".") {
      normal += segment;
      if (!last) normal += '/';
    }
  }
  return normal;
}

std::string http::encode_path(const std::string& path) {
  // What RFC 3986 lets stand in a path, and the '/'.
  constexpr unsigned long flags =
      HUT_FLAG_UPPERCASE | HUT_FLAG_KEEP_COLON | HUT_FLAG_KEEP_LEFT_PAREN |
      HUT_FLAG_KEEP_RIGHT_PAREN | HUT_FLAG_KEEP_SINGLE_QUOTE | HUT_FLAG_KEEP_ASTERISK |
      HUT_FLAG_KEEP_EXCLAMATION | HUT_FLAG_KEEP_DOLLAR | HUT_FLAG_KEEP_AMPERSAND |
      HUT_FLAG_KEEP_PLUS | HUT_FLAG_KEEP_COMMA | HUT_FLAG_KEEP_SEMICOLON | HUT_FLAG_KEEP_EQUAL |
      HUT_FLAG_KEEP_AT;
  std::string encoded;
  http_encode_string_i(path.c_str(), flags, std::back_inserter(encoded));
  return encoded;
}

std::string http::to_uri(const std::string& path, const std::string& query) {
  std::string uri = encode_path(path);
  if (!query.empty()) uri.append("?").append(query);
  return uri;
}
