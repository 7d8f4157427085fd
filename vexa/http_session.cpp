#include "vexa/http_session.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string_view>
#include <utility>

#include "vexa/http_session_factory.h"
#include "vexa/http_session_impl.h"
#include "vexa/log.h"

namespace {

const char user_agent[] = "libvexa";
// A server that can answer in several ways sends JSON.
const char accepted_types[] = "application/json, */*;q=0.5";

/// Why the request cannot be sent as it stands; null when it can.
const char* objection(const HTTP_Request& request) {
  const std::string& uri = request.uri_text();
  const bool whole_server = uri == "*" && request.method() == HTTP_METHOD_OPTIONS;
  const auto breaks_the_line = [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == '\x7f';
  };
  if (http_method_name(request.method()) == nullptr || request.method() == HTTP_METHOD_CONNECT) {
    return "its method cannot be sent";
  }
  if (request.minor_version() == 0) return "its version is 1.0";
  if (uri.find('#') != std::string::npos) return "its URI has a fragment";
  if (std::any_of(uri.begin(), uri.end(), breaks_the_line)) {
    return "its URI has a blank or a control character";
  }
  if (!whole_server && (uri.empty() || uri.front() != '/')) return "its URI is no path";
  if (request.headers().refused()) return "a header field was refused";
  const char* const length = request.headers().get(HTTP_HEAD_CONTENT_LENGTH);
  if (length != nullptr && !request.chunked_transfer_encoding()) {
    const char* end = nullptr;
    natoi<std::uint64_t>(length, nullptr, &end);
    if (errno != 0 || *end != '\0' || *length == '+') return "its Content-Length is no number";
  }
  return nullptr;
}

void add_line(std::string& head, std::string_view name, std::string_view value) {
  head.append(name).append(": ", 2).append(value).append("\r\n", 2);
}

/// Whose reply a caller need not want, and which is then not asked to be JSON.
bool is_form(const HTTP_Request& request) {
  return http_header_value_match(request.content_type(), "application/x-www-form-urlencoded", ';');
}

/// The framing of the body is added when the first of it is there.
bool is_framing(const HTTP_Headers::Field& field) {
  return field.id == HTTP_HEAD_CONTENT_LENGTH || field.id == HTTP_HEAD_TRANSFER_ENCODING;
}

bool has(const HTTP_Headers& headers, const HTTP_Headers::Field& field) {
  return (field.id >= 0 ? headers.get(field.id) : headers.get(field.name.c_str())) != nullptr;
}

}  // namespace

void HTTP_Session::intrusive_add_ref(HTTP_Session* session) {
  if (session != nullptr) session->references_.fetch_add(1, std::memory_order_relaxed);
}

void HTTP_Session::intrusive_remove_ref(HTTP_Session* session) {
  if (session != nullptr && session->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete session;
  }
}

HTTP_Session::HTTP_Session(std::unique_ptr<vexa::HTTP_Session_Impl> impl)
    : impl_(std::move(impl)) {}

HTTP_Session::~HTTP_Session() = default;

void HTTP_Session::clear_cookie() { impl_->clear_cookies(); }

const std::string& HTTP_Session::host() const { return impl_->peer.host; }
unsigned short HTTP_Session::port() const { return impl_->peer.port; }
bool HTTP_Session::is_ssl() const { return impl_->peer.tls != nullptr; }
const std::string& HTTP_Session::authority() const { return impl_->peer.authority; }

void HTTP_Session::write_head(const HTTP_Request& request, const std::string& path,
                              std::string& head) {
  const bool close = (impl_->peer.flags & HTTP_SESSION_NO_KEEP_ALIVE) != 0;
  head.reserve(1024);
  head.append(http_method_name(request.method())).append(1, ' ').append(request.uri_text());
  head.append(" HTTP/1.1\r\n");
  const auto absent = [&](int id) {
    return request.headers().get(id) == nullptr && headers_.get(id) == nullptr;
  };
  const auto add = [&](const HTTP_Headers::Field& field) {
    if (is_framing(field) || (close && field.id == HTTP_HEAD_CONNECTION)) return;
    add_line(head, field.title(), field.value);
  };
  if (absent(HTTP_HEAD_HOST)) add_line(head, "Host", impl_->peer.authority);
  for (const HTTP_Headers::Field& field : request.headers()) add(field);
  for (const HTTP_Headers::Field& field : headers_) {
    if (!has(request.headers(), field)) add(field);
  }
  if (close) add_line(head, "Connection", "close");
  if (absent(HTTP_HEAD_USER_AGENT)) add_line(head, "User-Agent", user_agent);
  if (absent(HTTP_HEAD_ACCEPT) && !is_form(request)) add_line(head, "Accept", accepted_types);
  if (absent(HTTP_HEAD_COOKIE)) {
    const std::string cookies = impl_->cookies(path);
    if (!cookies.empty()) add_line(head, "Cookie", cookies);
  }
}

HTTP_Connection_var HTTP_Session::send_request(const HTTP_Request& request) {
  if (const char* const reason = objection(request)) {
    errno = EINVAL;
    VEXA_ERROR("HTTP request refused, %C\n", reason);
    return HTTP_Connection_var();
  }
  HTTP_Connection_var connection(new (std::nothrow) HTTP_Connection(this));
  if (!connection) {
    VEXA_ERROR("Failed to send HTTP request to %C, there is no memory\n", authority().c_str());
    errno = ENOMEM;
    return connection;
  }
  if (connection->begin(request)) return connection;
  const int error = connection->error();
  connection.reset();
  errno = error;
  return connection;
}
