#include "tools/json_rpc_call/http_url.h"

#include <algorithm>

#include "vexa/natoi.h"

namespace {

const std::string http = "http://";
const std::string https = "https://";

bool starts_with(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool read_port(const std::string& text, unsigned short& port) {
  if (text.empty() || text.size() > 5) return false;
  if (text.find_first_not_of("0123456789") != std::string::npos) return false;
  const unsigned long number = natoi<unsigned long>(text.c_str());
  port = static_cast<unsigned short>(number);
  return number >= 1 && number <= 65535;
}

}  // namespace

bool Http_URL::is_one(const std::string& url) {
  return starts_with(url, http) || starts_with(url, https);
}

bool Http_URL::parse(const std::string& url, Http_URL& parts, std::string& error) {
  parts.tls = starts_with(url, https);
  parts.port = parts.tls ? 443 : 80;
  const std::size_t begin = (parts.tls ? https : http).size();
  const std::size_t end = std::min(url.find_first_of("/?#", begin), url.size());
  parts.path = url.substr(end, url.find('#', end) - end);
  if (parts.path.empty() || parts.path[0] != '/') parts.path.insert(0, 1, '/');

  std::string authority = url.substr(begin, end - begin);
  error = "http://HOST:PORT/PATH or https://HOST:PORT/PATH is expected";
  if (authority.find('@') != std::string::npos) return false;
  const bool bracketed = starts_with(authority, "[");
  const std::size_t host_end =
      bracketed ? authority.find(']') : std::min(authority.find(':'), authority.size());
  if (host_end == std::string::npos) return false;
  parts.host = bracketed ? authority.substr(1, host_end - 1) : authority.substr(0, host_end);
  const std::string rest = authority.substr(host_end + (bracketed ? 1 : 0));
  if (parts.host.empty()) return false;
  if (!rest.empty() && (rest[0] != ':' || !read_port(rest.substr(1), parts.port))) return false;
  error.clear();
  return true;
}
