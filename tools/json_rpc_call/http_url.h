#pragma once

#include <string>

/// An http:// or https:// URL (RFC 3986), taken apart.
struct Http_URL {
  bool tls = false;
  std::string host;  ///< an IPv6 address without brackets
  unsigned short port = 0;
  std::string path;  ///< with the query, as it stands; at least "/"

  /// Whether a URL is of these two schemes.
  static bool is_one(const std::string& url);
  /// Reads one that is; false with a reason in `error`.
  static bool parse(const std::string& url, Http_URL& parts, std::string& error);
};
