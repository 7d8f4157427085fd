#include "vexa/http_tls.h"

#include <ace/SSL/SSL_Context.h>
#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>
#include <string>

#include "vexa/http_session_factory.h"
#include "vexa/log.h"

// OpenSSL's own socket layer writes without MSG_NOSIGNAL, and ACE's TLS stream waits with select,
// which aborts the process above descriptor 1023. So the TLS connection stands on a BIO of ours
// that reads and writes through HTTP_Socket; blocking and time-outs are the socket's, and a
// handshake is one call.

namespace vexa {

namespace {

HTTP_TLS* owner(BIO* bio) { return static_cast<HTTP_TLS*>(BIO_get_data(bio)); }

int bio_result(BIO* bio, int result, bool reading) {
  BIO_clear_retry_flags(bio);
  if (result < 0 && errno == EAGAIN) {
    reading ? BIO_set_retry_read(bio) : BIO_set_retry_write(bio);
  }
  return result;
}

int bio_read(BIO* bio, char* data, int size) {
  return bio_result(bio, owner(bio)->read_socket(data, size), true);
}

int bio_write(BIO* bio, const char* data, int size) {
  return bio_result(bio, owner(bio)->write_socket(data, size), false);
}

long bio_control(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

const BIO_METHOD* bio_method() {
  static BIO_METHOD* const method = [] {
    BIO_METHOD* const made =
        BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "vexa socket");
    if (made != nullptr) {
      BIO_meth_set_read(made, bio_read);
      BIO_meth_set_write(made, bio_write);
      BIO_meth_set_ctrl(made, bio_control);
    }
    return made;
  }();
  return method;
}

bool is_address(const std::string& host) {
  unsigned char address[sizeof(in6_addr)];
  return ::inet_pton(AF_INET, host.c_str(), address) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), address) == 1;
}

bool trust_system(ACE_SSL_Context& context) {
  // ACE has loaded what the environment names, when it names something.
  if (std::getenv(X509_get_default_cert_file_env()) != nullptr ||
      std::getenv(X509_get_default_cert_dir_env()) != nullptr) {
    return true;
  }
  return context.load_trusted_ca(nullptr, X509_get_default_cert_dir(), false) == 0;
}

}  // namespace

void HTTP_TLS_Context_Delete::operator()(ACE_SSL_Context* context) const { delete context; }

HTTP_TLS_Context http_tls_context(bool insecure) {
  HTTP_TLS_Context context(new (std::nothrow) ACE_SSL_Context);
  if (!context) {
    errno = ENOMEM;
    return context;
  }
  ERR_clear_error();
  if (context->set_mode(ACE_SSL_Context::SSLv23_client) != 0 ||
      (!insecure && !trust_system(*context)) ||
      SSL_CTX_set_min_proto_version(context->context(), TLS1_2_VERSION) != 1) {
    ERR_clear_error();
    errno = EPROTO;
    return nullptr;
  }
  if (!insecure) context->set_verify_peer(1, 0, 0);
  return context;
}

ssl_ctx_st* http_tls_native(ACE_SSL_Context* context) {
  SSL_CTX* const native = context->context();
  if (native == nullptr) errno = EPROTO;
  return native;
}

HTTP_TLS::~HTTP_TLS() {
  if (usable_) {
    socket_.may_wait(false);
    SSL_shutdown(ssl_);
    ERR_clear_error();
  }
  SSL_free(ssl_);
}

bool HTTP_TLS::set_up(const HTTP_Peer& peer) {
  ssl_ = SSL_new(peer.tls);
  BIO* const bio = bio_method() == nullptr ? nullptr : BIO_new(bio_method());
  if (ssl_ == nullptr || bio == nullptr) {
    BIO_free(bio);
    return false;
  }
  BIO_set_data(bio, this);
  BIO_set_init(bio, 1);
  SSL_set_bio(ssl_, bio, bio);
  SSL_set_read_ahead(ssl_, 1);  // a record a read, not two
  if ((peer.flags & HTTP_SESSION_TLS_1_3) != 0 &&
      SSL_set_min_proto_version(ssl_, TLS1_3_VERSION) != 1) {
    return false;
  }
  const std::string name = peer.host.substr(0, peer.host.find('%'));  // no zone of an address
  const bool address = is_address(name);
  if (!address && SSL_set_tlsext_host_name(ssl_, name.c_str()) != 1) return false;
  if ((peer.flags & HTTP_SESSION_ANY_HOST_NAME) != 0) return true;
  SSL_set_hostflags(ssl_, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return (address ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_), name.c_str())
                  : SSL_set1_host(ssl_, name.c_str())) == 1;
}

int HTTP_TLS::handshake(const HTTP_Peer& peer) {
  ERR_clear_error();
  if (!set_up(peer)) {
    ERR_clear_error();
    errno = EPROTO;
    VEXA_ERROR("Failed to set up TLS with %C\n", peer.authority.c_str());
    return -1;
  }
  socket_.limit(peer.conn_timeout);
  error_ = 0;
  const int result = SSL_connect(ssl_);
  socket_.limit(0);
  if (result == 1) {
    usable_ = true;
    return 0;
  }
  const long verdict = SSL_get_verify_result(ssl_);
  const unsigned long reason = ERR_peek_error();
  errno = error_ != 0 ? error_ : reason != 0 ? EPROTO : ECONNRESET;
  if (verdict != X509_V_OK && ERR_GET_REASON(reason) == SSL_R_CERTIFICATE_VERIFY_FAILED) {
    errno = EPROTO;
    VEXA_ERROR("Failed to verify the certificate of %C, %C\n", peer.authority.c_str(),
               X509_verify_cert_error_string(verdict));
  } else if (error_ == 0 && reason != 0) {
    const char* const text = ERR_reason_error_string(reason);
    VEXA_ERROR("TLS handshake with %C failed, %C\n", peer.authority.c_str(),
               text != nullptr ? text : "unknown reason");
  } else {
    VEXA_ERROR("TLS handshake with %C failed, errno=%d, %m\n", peer.authority.c_str(), errno);
  }
  ERR_clear_error();
  return -1;
}

int HTTP_TLS::fail() {
  usable_ = false;
  ERR_clear_error();
  errno = error_ != 0 ? error_ : EPROTO;
  return -1;
}

ssize_t HTTP_TLS::recv(void* data, std::size_t size) {
  ERR_clear_error();  // the queue is the thread's, and others leave things there
  error_ = 0;
  std::size_t got = 0;
  const int result = SSL_read_ex(ssl_, data, size, &got);
  if (result == 1) return static_cast<ssize_t>(got);
  if (SSL_get_error(ssl_, result) == SSL_ERROR_ZERO_RETURN) return 0;
  return fail();
}

int HTTP_TLS::write(const char* data, std::size_t size) {
  ERR_clear_error();
  error_ = 0;
  std::size_t taken = 0;
  return size == 0 || SSL_write_ex(ssl_, data, size, &taken) == 1 ? 0 : fail();
}

int HTTP_TLS::send(iovec* parts, int count) {
  // Small parts share a record.
  char record[SSL3_RT_MAX_PLAIN_LENGTH];
  std::size_t filled = 0;
  for (; count > 0; ++parts, --count) {
    const char* data = static_cast<const char*>(parts->iov_base);
    std::size_t left = parts->iov_len;
    while (left != 0) {
      const std::size_t piece = std::min(left, sizeof record - filled);
      std::copy_n(data, piece, record + filled);
      filled += piece;
      data += piece;
      left -= piece;
      if (filled < sizeof record) continue;
      if (write(record, filled) == -1) return -1;
      filled = 0;
    }
  }
  return write(record, filled);
}

bool HTTP_TLS::quiet() {
  // Records that are no data, such as session tickets, are worked through here.
  socket_.may_wait(false);
  ERR_clear_error();
  char byte;
  const int result = SSL_peek(ssl_, &byte, 1);
  const bool waits = result <= 0 && SSL_get_error(ssl_, result) == SSL_ERROR_WANT_READ;
  socket_.may_wait(true);
  ERR_clear_error();
  usable_ = waits;
  return waits;
}

int HTTP_TLS::read_socket(char* data, int size) {
  const ssize_t got = socket_.recv(data, static_cast<std::size_t>(size));
  if (got == -1) error_ = errno;
  if (got == 0) error_ = ECONNRESET;  // the end of TCP, not of TLS
  return static_cast<int>(got);
}

int HTTP_TLS::write_socket(const char* data, int size) {
  iovec part{const_cast<char*>(data), static_cast<std::size_t>(size)};
  if (socket_.send(&part, 1) == 0) return size;
  error_ = errno;
  return -1;
}

}  // namespace vexa
