#include "http/origin_check.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string_view>

#include "vexa/http_text.h"

namespace http {

namespace {

std::string_view text_of(const char* field) { return field == nullptr ? "" : field; }

/// Without the port, and without the brackets of an IPv6 address.
std::string_view host_of(std::string_view authority) {
  if (!authority.empty() && authority.front() == '[') {
    const std::size_t end = authority.find(']');
    const std::string_view rest = end == std::string_view::npos ? "?" : authority.substr(end + 1);
    return rest.empty() || rest.front() == ':' ? authority.substr(1, end - 1) : authority;
  }
  return authority.substr(0, authority.rfind(':'));
}

bool is_address(std::string_view host) {
  unsigned char ignored[sizeof(in6_addr)];
  const std::string text(host);
  return ::inet_pton(AF_INET, text.c_str(), ignored) == 1 ||
         ::inet_pton(AF_INET6, text.c_str(), ignored) == 1;
}

bool listed(const std::vector<std::string>& list, std::string_view text) {
  return std::any_of(list.begin(), list.end(), [=](const std::string& entry) {
    return entry == "*" || vexa::ascii_iequal(entry, text);
  });
}

}  // namespace

bool Origin_Check::host_allowed(const Http_Request_Head& head) const {
  const std::string_view authority = text_of(head.request.headers().get(HTTP_HEAD_HOST));
  const std::string_view host = host_of(authority);
  if (authority.empty()) return head.request.minor_version() == 0;  // no browser
  return is_address(host) || vexa::ascii_iequal(host, "localhost") || listed(allow_hosts, host);
}

bool Origin_Check::is_foreign(const Http_Request_Head& head) const {
  const std::string_view origin = text_of(head.request.headers().get("Origin"));
  if (origin.empty()) return false;
  const std::string_view scheme = head.tls ? "https://" : "http://";
  const std::string_view host = text_of(head.request.headers().get(HTTP_HEAD_HOST));
  return origin.substr(0, scheme.size()) != scheme ||
         !vexa::ascii_iequal(origin.substr(scheme.size()), host);
}

bool Origin_Check::origin_allowed(const Http_Request_Head& head) const {
  if (!is_foreign(head)) return true;
  return listed(allow_origins, text_of(head.request.headers().get("Origin")));
}

}  // namespace http
