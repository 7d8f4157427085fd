#include "transport/endpoint.h"

#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "vexa/natoi.h"

namespace transport {

namespace {

constexpr std::string_view separator = "://";
constexpr std::array<std::string_view, 6> tcp_schemes = {"tcp",   "tcps", "http",
                                                         "https", "ws",   "wss"};

bool is_tcp(const std::string& scheme, Endpoint::Schemes schemes) {
  const auto end = schemes == Endpoint::DOORS ? tcp_schemes.end() : tcp_schemes.begin() + 1;
  return std::find(tcp_schemes.begin(), end, scheme) != end;
}

bool parse_port(const std::string& text, std::uint16_t& port) {
  const char* stop = nullptr;
  const char* const end = text.data() + text.size();
  port = natoi<std::uint16_t>(text.data(), end, &stop);
  return errno == 0 && stop == end;
}

bool parse_tcp(const std::string& authority, Endpoint& endpoint, std::string& error) {
  const std::size_t colon = authority.rfind(':');
  if (colon == std::string::npos || !parse_port(authority.substr(colon + 1), endpoint.port)) {
    error = "a port from 0 to 65535 is missing";
    return false;
  }
  endpoint.host = authority.substr(0, colon);
  if (endpoint.host.size() > 1 && endpoint.host.front() == '[' && endpoint.host.back() == ']') {
    endpoint.host = endpoint.host.substr(1, endpoint.host.size() - 2);
  } else if (endpoint.host.find(':') != std::string::npos) {
    error = "an IPv6 address stands in brackets";
    return false;
  }
  if (!endpoint.host.empty()) return true;
  error = "the address is missing";
  return false;
}

}  // namespace

std::string Endpoint::url() const {
  const std::string begin = scheme + std::string(separator);
  if (kind == UNIX) return begin + path;
  const bool v6 = host.find(':') != std::string::npos;
  return begin + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool Endpoint::tls() const { return scheme == "tcps" || scheme == "https" || scheme == "wss"; }

bool Endpoint::parse(const std::string& url, Schemes schemes, Endpoint& endpoint,
                     std::string& error) {
  endpoint = Endpoint();
  const std::size_t end = url.find(separator);
  endpoint.scheme = url.substr(0, end);
  const std::string rest =
      end == std::string::npos ? std::string() : url.substr(end + separator.size());
  if (is_tcp(endpoint.scheme, schemes)) return parse_tcp(rest, endpoint, error);
  if (endpoint.scheme != "unix") {
    error = schemes == STREAMS
                ? "tcp://ADDRESS:PORT or unix://PATH is expected"
                : "tcp, tcps, http, https, ws or wss ://ADDRESS:PORT, or unix://PATH is expected";
    return false;
  }
  endpoint.kind = UNIX;
  endpoint.path = rest;
  if (endpoint.path.empty() || endpoint.path.size() >= sizeof(sockaddr_un::sun_path)) {
    error = "the path is missing or too long for a socket";
    return false;
  }
  return true;
}

}  // namespace transport
