#include "host/listeners.h"

#include <boost/asio/ip/address.hpp>

#include "http/door.h"
#include "transport/door.h"
#include "transport/endpoint.h"
#include "transport/tls.h"

namespace {

using transport::Endpoint;

bool on_loopback(const Endpoint& endpoint) {
  if (endpoint.kind == Endpoint::UNIX || endpoint.host == "localhost") return true;
  boost::system::error_code failed;
  const auto address = boost::asio::ip::make_address(endpoint.host, failed);
  return !failed && address.is_loopback();
}

int fail(std::string& error, const char* reason) {
  error = reason;
  return -1;
}

/// The certificate of a scheme that has TLS. False with a reason.
bool make_tls(const Listener_Options& options, const Endpoint& endpoint,
              std::shared_ptr<transport::Tls_Server>& tls, std::string& error) {
  if (!endpoint.tls()) return true;
  if (options.tls_certificate.empty() || options.tls_key.empty()) {
    error = "it needs --tls-cert and --tls-key";
    return false;
  }
  tls = transport::Tls_Server::make(options.tls_certificate, options.tls_key, options.tls_client_ca,
                                    error);
  return tls != nullptr;
}

std::shared_ptr<const transport::Method_Filter> filter_of(const Listener_Options& options) {
  if (options.allow_methods.empty() && options.deny_methods.empty()) return nullptr;
  return std::make_shared<transport::Method_Filter>(
      transport::Method_Filter{options.allow_methods, options.deny_methods});
}

std::shared_ptr<transport::Door> make_door(const Listener_Options& options,
                                           const Endpoint& endpoint,
                                           const std::shared_ptr<http::Site>& site) {
  const std::string& scheme = endpoint.scheme;
  if (scheme == "tcp" || scheme == "tcps" || scheme == "unix") {
    return std::make_shared<transport::Stream_Door>(filter_of(options));
  }
  http::Door_Options door;
  door.http = scheme == "http" || scheme == "https";
  door.rpc_path = options.rpc_path;
  door.filter = filter_of(options);
  door.site = site;
  door.origins.allow_origins = options.allow_origins;
  door.origins.allow_hosts = options.allow_hosts;
  return std::make_shared<http::Http_Door>(std::move(door));
}

}  // namespace

int open_listener(transport::Server& server, const Listener_Options& options,
                  const std::shared_ptr<http::Site>& site, std::string& bound, std::string& error) {
  Endpoint endpoint;
  if (!Endpoint::parse(options.url, Endpoint::DOORS, endpoint, error)) return -1;
  if (!on_loopback(endpoint) && !endpoint.tls() && !options.allow_plain) {
    return fail(error, "it is not on the loopback interface: use TLS, or --allow-plain");
  }
  std::shared_ptr<transport::Tls_Server> tls;
  if (!make_tls(options, endpoint, tls, error)) return -1;
  return server.listen({options.url, make_door(options, endpoint, site), tls}, bound, error);
}

int open_admin_listener(transport::Server& server, const std::string& url,
                        const std::shared_ptr<http::Site>& site, std::string& bound,
                        std::string& error) {
  Endpoint endpoint;
  if (!Endpoint::parse(url, Endpoint::DOORS, endpoint, error)) return -1;
  if (endpoint.scheme != "http") return fail(error, "http://ADDRESS:PORT is expected");
  if (!on_loopback(endpoint)) return fail(error, "it must be on the loopback interface");
  http::Door_Options door;
  door.websocket = false;
  door.rpc_path.clear();
  door.site = site;
  return server.listen({url, std::make_shared<http::Http_Door>(std::move(door)), nullptr}, bound,
                       error);
}
