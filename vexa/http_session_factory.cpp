#include "vexa/http_session_factory.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "vexa/http_session_impl.h"
#include "vexa/log.h"

namespace {

using vexa::HTTP_Peer;

constexpr int known_flags = HTTP_SESSION_NO_KEEP_ALIVE | HTTP_SESSION_NO_COOKIES |
                            HTTP_SESSION_TLS_1_3 | HTTP_SESSION_ANY_HOST_NAME;

std::string_view without_brackets(std::string_view host) {
  const bool brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  return brackets ? host.substr(1, host.size() - 2) : host;
}

bool is_host(std::string_view host) {
  const auto is_bad = [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' ||
           std::string_view("/?#@[]\\").find(c) != std::string_view::npos;
  };
  // A zone is only that of an address.
  const bool zone = host.find('%') != host.npos && host.find(':') == host.npos;
  return !host.empty() && !zone && std::none_of(host.begin(), host.end(), is_bad);
}

std::string authority_of(const HTTP_Peer& peer, bool ssl) {
  std::string text = peer.host.substr(0, peer.host.find('%'));  // a zone is this machine's affair
  if (text.find(':') != std::string::npos) text.insert(0, 1, '[').append(1, ']');
  if (peer.port != (ssl ? 443 : 80)) text.append(1, ':').append(std::to_string(peer.port));
  return text;
}

int milliseconds(int seconds) {
  return std::min(seconds, std::numeric_limits<int>::max() / 1000) * 1000;
}

HTTP_Session_var refuse(int error, const char* reason) {
  errno = error;
  VEXA_ERROR("Failed to make an HTTP session, %C\n", reason);
  return HTTP_Session_var();
}

}  // namespace

HTTP_Session_var HTTP_Session_Factory::create(const char* host, unsigned short port, bool ssl,
                                              const char* local_address, int families,
                                              ACE_SSL_Context* ssl_context, bool insecure,
                                              int send_timeout, int recv_timeout, int conn_timeout,
                                              int flags) {
  if (host == nullptr || !is_host(without_brackets(host)) || port == 0) {
    return refuse(EINVAL, "host or port makes no sense");
  }
  if (families < HTTP_SESSION_IPV4 || families > HTTP_SESSION_ANY_FAMILY ||
      (flags & ~known_flags) != 0 || std::min({send_timeout, recv_timeout, conn_timeout}) < 0) {
    return refuse(EINVAL, "families, flags or a time-out make no sense");
  }
  try {
    std::unique_ptr<vexa::HTTP_Session_Impl> impl(new vexa::HTTP_Session_Impl);
    HTTP_Peer& peer = impl->peer;
    peer.host = without_brackets(host);
    peer.port = port;
    peer.authority = authority_of(peer, ssl);
    peer.families = families;
    peer.flags = flags;
    peer.send_timeout = milliseconds(send_timeout);
    peer.recv_timeout = milliseconds(recv_timeout);
    peer.conn_timeout = milliseconds(conn_timeout);
    if (local_address != nullptr) {
      if (!vexa::http_local_address(local_address, peer.local)) {
        return refuse(EINVAL, "the local address is none");
      }
      peer.has_local = true;
    }
    if (ssl) {
      if (ssl_context == nullptr) {
        impl->owned = vexa::http_tls_context(insecure);
        ssl_context = impl->owned.get();
      }
      peer.tls = ssl_context == nullptr ? nullptr : vexa::http_tls_native(ssl_context);
      if (peer.tls == nullptr) return refuse(errno, "no TLS context");
      if (insecure && impl->owned) {
        VEXA_WARNING("HTTPS to %C does not verify the server's certificate\n",
                     peer.authority.c_str());
      }
    }
    return HTTP_Session_var(new HTTP_Session(std::move(impl)));
  } catch (const std::bad_alloc&) {
    return refuse(ENOMEM, "no memory");
  }
}
