#include "tools/json_rpc_call/http_client.h"

#include <ace/SSL/SSL_Context.h>

#include "tools/json_rpc_call/log_lines.h"
#include "tools/json_rpc_call/output.h"

namespace {

/// A context that trusts the certificates of a file; null when it has none.
std::unique_ptr<ACE_SSL_Context> trust_file(const std::string& file) {
  auto context = std::make_unique<ACE_SSL_Context>();
  if (context->set_mode(ACE_SSL_Context::SSLv23_client) == -1) return nullptr;
  if (context->load_trusted_ca(file.c_str(), nullptr, false) == -1) return nullptr;
  context->set_verify_peer(1, 0, 0);
  return context;
}

}  // namespace

Http_Client::Http_Client() = default;
Http_Client::~Http_Client() = default;

bool Http_Client::open(const Options& options, std::string& error) {
  if (options.insecure) {
    complain(
        "--insecure: the server's certificate is not looked at: anyone "
        "may be answering");
  }
  if (!options.cacert.empty()) {
    trust_ = trust_file(options.cacert);
    if (trust_ == nullptr) {
      error = "--cacert " + options.cacert + ": no certificates can be read there";
      return false;
    }
  }
  const Http_URL& url = options.http_url;
  const int seconds = static_cast<int>(options.timeout.count());
  session_ = HTTP_Session_Factory::create(url.host.c_str(), url.port, url.tls, nullptr,
                                          HTTP_SESSION_ANY_FAMILY, trust_.get(), options.insecure,
                                          seconds, seconds, seconds, 0);
  if (session_.get() == nullptr) {
    error = Log_Lines::first_error();
    return false;
  }
  for (const auto& field : options.headers) {
    if (session_->headers().put(field.first, field.second)) continue;
    error = "--header " + field.first + ": it cannot be sent";
    return false;
  }
  return true;
}
