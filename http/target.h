#pragma once

#include <string>
#include <string_view>

namespace http {

/// What a request line asks for.
struct Target {
  std::string path;   ///< see normal_path(); "*" for the whole server
  std::string query;  ///< as it came, still encoded and without the '?'
};

/// Takes a request target apart (RFC 9112 section 3.2): "/path?query", "http://host/path?query", of
/// which the host is ignored, or "*". 0, or the status to refuse it with and `target` unchanged:
///
///   400  another form; a character that must not be in a URI (blanks, controls, '#', what is not
///        ASCII); a bad escape in the path; NUL, or a '/' that is escaped, which would make "a%2Fb"
///        and "a/b" one path to some and two to others
///   503  no memory
int parse_target(std::string_view text, Target& target);

/// A decoded path without empty segments and ".", and without ".." and what stands before it (RFC
/// 3986 section 5.2.4; above the root is the root). It begins with '/', and ends with one where the
/// last segment was among those. Throws std::bad_alloc.
std::string normal_path(std::string_view path);

/// A path as it stands in a URI, escaped where it must be. Throws std::bad_alloc.
std::string encode_path(const std::string& path);

/// The two as a target. Throws std::bad_alloc.
std::string to_uri(const std::string& path, const std::string& query);

}  // namespace http
