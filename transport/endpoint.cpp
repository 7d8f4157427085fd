#include "transport/endpoint.h"

#include <sys/un.h>

#include <cerrno>
#include <string_view>

#include "vexa/natoi.h"

namespace transport {

namespace {

constexpr std::string_view tcp = "tcp://";
constexpr std::string_view unix_socket = "unix://";

bool starts_with(const std::string& text, std::string_view prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
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
  if (kind == UNIX) return std::string(unix_socket) + path;
  const bool v6 = host.find(':') != std::string::npos;
  return std::string(tcp) + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool Endpoint::parse(const std::string& url, Endpoint& endpoint, std::string& error) {
  endpoint = Endpoint();
  if (starts_with(url, tcp)) return parse_tcp(url.substr(tcp.size()), endpoint, error);
  if (!starts_with(url, unix_socket)) {
    error = "tcp://ADDRESS:PORT or unix://PATH is expected";
    return false;
  }
  endpoint.kind = UNIX;
  endpoint.path = url.substr(unix_socket.size());
  if (endpoint.path.empty() || endpoint.path.size() >= sizeof(sockaddr_un::sun_path)) {
    error = "the path is missing or too long for a socket";
    return false;
  }
  return true;
}

}  // namespace transport
