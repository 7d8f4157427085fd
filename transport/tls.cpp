#include "transport/tls.h"

#include <openssl/ssl.h>

#include <boost/asio/ssl/stream.hpp>
#include <utility>

#include "transport/loop.h"
#include "transport/tls_stream.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace ssl = boost::asio::ssl;
using boost::system::error_code;

Tls_Server::Tls_Server() : context_(ssl::context::tls_server) {
  SSL_CTX_set_min_proto_version(context_.native_handle(), TLS1_2_VERSION);
  SSL_CTX_set_options(context_.native_handle(),
                      SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  SSL_CTX_set_mode(context_.native_handle(), SSL_MODE_RELEASE_BUFFERS);
}

std::shared_ptr<Tls_Server> Tls_Server::make(const std::string& certificate, const std::string& key,
                                             const std::string& client_ca, std::string& error) {
  const std::shared_ptr<Tls_Server> made(new Tls_Server);
  ssl::context& context = made->context_;
  error_code failed;
  const auto bad = [&](const std::string& file) {
    if (failed) error = file + ": " + failed.message();
    return static_cast<bool>(failed);
  };
  context.use_certificate_chain_file(certificate, failed);
  if (bad(certificate)) return nullptr;
  context.use_private_key_file(key, ssl::context::pem, failed);
  if (bad(key)) return nullptr;
  if (client_ca.empty()) return made;
  context.load_verify_file(client_ca, failed);
  if (bad(client_ca)) return nullptr;
  context.set_verify_mode(ssl::verify_peer | ssl::verify_fail_if_no_peer_cert);
  // Peers with several certificates learn which one is wanted. Sessions of one listener are not
  // taken up again at another.
  SSL_CTX_set_client_CA_list(context.native_handle(), SSL_load_client_CA_file(client_ca.c_str()));
  SSL_CTX_set_session_cache_mode(context.native_handle(), SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(context.native_handle(), SSL_OP_NO_TICKET);
  return made;
}

namespace {

/// A handshake that is under way. On its loop; ends by itself, or by the time-out.
class Handshake final : public Loop_Member, public std::enable_shared_from_this<Handshake> {
public:
  Handshake(const std::shared_ptr<Tls_Server>& tls, const std::shared_ptr<Door>& door,
            Socket_Stream::Socket socket, Opened opened)
      : tls_(tls),
        door_(door),
        stream_(std::make_unique<Tls_Stream::Stream>(std::move(socket), tls->context())),
        opened_(std::move(opened)),
        deadline_(Loop::now() + opened_.state->limits.stall_timeout) {}

  void start() {
    opened_.loop->add(shared_from_this());
    stream_->async_handshake(
        ssl::stream_base::server,
        [self = shared_from_this()](const error_code& error) { self->finish(error); });
  }

  void tick(Loop_Time now) override {
    if (now > deadline_) close();
  }

  void loop_ended() override {
    const std::shared_ptr<Handshake> self = shared_from_this();
    opened_.loop->remove(this);
    close();
  }

private:
  void close() {
    if (stream_ == nullptr) return;
    error_code ignored;
    stream_->lowest_layer().close(ignored);
  }

  void finish(const error_code& error) {
    opened_.loop->remove(this);
    if (error) {
      VEXA_INFO("A peer failed in the TLS handshake: %C\n", error.message().c_str());
      return;
    }
    opened_.stream = std::make_unique<Tls_Stream>(std::move(stream_));
    door_->serve(std::move(opened_));
  }

  const std::shared_ptr<Tls_Server> tls_;  // outlives the stream
  const std::shared_ptr<Door> door_;
  std::unique_ptr<Tls_Stream::Stream> stream_;  // until it is handed over
  Opened opened_;
  const Loop_Time deadline_;
};

}  // namespace

void accept_tls(const std::shared_ptr<Tls_Server>& tls, const std::shared_ptr<Door>& door,
                Socket_Stream::Socket socket, Opened opened) {
  try {
    std::make_shared<Handshake>(tls, door, std::move(socket), std::move(opened))->start();
  } catch (...) {
    VEXA_ERROR("A TLS handshake could not begin: %C\n", vexa::exception_text());
  }
}

}  // namespace transport
