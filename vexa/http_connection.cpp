#include "vexa/http_connection.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <new>
#include <utility>

#include "vexa/http_session.h"
#include "vexa/http_session_factory.h"
#include "vexa/http_session_impl.h"
#include "vexa/http_text.h"
#include "vexa/log.h"
#include "vexa/natoi.h"

// The head waits in head_, small pieces of the body in body_, until there is enough for a write or
// the request ends: a small request is one write. What was written stays there as long as it is the
// whole request, so that it can be sent again when the server had closed the connection meanwhile.

namespace {

constexpr std::size_t gathered_size = 16u
                                      << 10;  // bytes of body_, and so of a chunk of small pieces
constexpr std::size_t skipped_size = 64u << 10;  // bytes that are read to save a connection

bool is_idempotent(int method) { return method != HTTP_METHOD_POST && method != HTTP_METHOD_PATCH; }

/// Whether a request of that method without a body says so.
bool expects_body(int method) {
  return method == HTTP_METHOD_POST || method == HTTP_METHOD_PUT || method == HTTP_METHOD_PATCH;
}

bool is_closed(int error) { return error == ECONNRESET || error == EPIPE; }

/// When a connection is no longer to be used because its server is about to close it: a second
/// before the end that "Keep-Alive: timeout=N" announces.
std::chrono::steady_clock::time_point expiry(const HTTP_Response& response) {
  const char* const value = response.headers().get(HTTP_HEAD_KEEP_ALIVE);
  for (std::string_view rest(value != nullptr ? value : ""); !rest.empty();) {
    std::string_view item = vexa::trim(vexa::take_item(rest, ','));
    if (!vexa::ascii_iequal(vexa::trim(vexa::take_item(item, '=')), "timeout")) continue;
    item = vexa::trim(item);
    const unsigned seconds = natoi<unsigned>(item.data(), item.data() + item.size());
    if (errno == 0 && seconds < 86400) {
      return std::chrono::steady_clock::now() + std::chrono::seconds(seconds) -
             std::chrono::seconds(1);
    }
  }
  return std::chrono::steady_clock::time_point::max();
}

}  // namespace

void HTTP_Connection::intrusive_add_ref(HTTP_Connection* connection) {
  if (connection != nullptr) connection->references_.fetch_add(1, std::memory_order_relaxed);
}

void HTTP_Connection::intrusive_remove_ref(HTTP_Connection* connection) {
  if (connection != nullptr &&
      connection->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete connection;
  }
}

HTTP_Connection::HTTP_Connection(HTTP_Session* session) : session_(session) {}

HTTP_Connection::~HTTP_Connection() { leave(); }

/// Saves the connection of an exchange that is left with the rest of its body already here.
void HTTP_Connection::leave() {
  if (!link_ ||
      (state_ != HTTP_SOCK_STATE_HEADER_RECEIVED && state_ != HTTP_SOCK_STATE_CONTENT_RECEIVING)) {
    return;
  }
  link_->stream.may_wait(false);
  char skipped[4096];
  for (std::size_t total = 0; !link_->reader.done() && total < skipped_size;) {
    const ssize_t got = link_->reader.body(link_->stream, skipped, sizeof skipped);
    if (got == -1) return;
    total += static_cast<std::size_t>(got);
  }
  link_->stream.may_wait(true);
  if (link_->reader.done()) finish();
}

bool HTTP_Connection::begin(const HTTP_Request& request) {
  const vexa::HTTP_Peer& peer = session_->impl_->peer;
  try {
    method_ = request.method();
    path_ = request.uri_text().substr(0, request.uri_text().find('?'));
    session_->write_head(request, path_, head_);
    const char* connection = request.headers().get(HTTP_HEAD_CONNECTION);
    if (connection == nullptr) connection = session_->headers().get(HTTP_HEAD_CONNECTION);
    close_ = (peer.flags & HTTP_SESSION_NO_KEEP_ALIVE) != 0 ||
             http_header_value_contains(connection, "close", ',');
    if (request.chunked_transfer_encoding()) {
      framing_ = Framing::chunked;
    } else if (request.headers().get(HTTP_HEAD_CONTENT_LENGTH) != nullptr) {
      framing_ = Framing::length;
      announced_ = request.content_length();
    } else {
      const bool reads = method_ == HTTP_METHOD_GET || method_ == HTTP_METHOD_HEAD;
      framing_ = reads ? Framing::none : Framing::unsaid;
    }
    state_ = HTTP_SOCK_STATE_HEADER_SENDING;
    link_ = session_->impl_->take();
    reused_ = link_ != nullptr;
    if (reused_) sent_before_ = link_->stream.sent();
    if (!reused_ && !connect()) return fail(errno) == 0;
    // Without a body nothing is to be waited for.
    if (framing_ != Framing::none || end_request()) return true;
  } catch (const std::bad_alloc&) {
    fail(ENOMEM);
  }
  VEXA_ERROR("Failed to send HTTP request to %C, errno=%d, %m\n", peer.authority.c_str(), error_);
  return false;
}

bool HTTP_Connection::connect() {
  link_ = session_->impl_->connect();
  reused_ = false;
  return link_ != nullptr;
}

ssize_t HTTP_Connection::send(const char* data, std::size_t length) {
  if (error_ != 0) return fail(error_);
  if (length == 0) return 0;
  if (framing_ == Framing::none || state_ > HTTP_SOCK_STATE_CONTENT_SENDING || data == nullptr) {
    return misuse("the request takes no body now");
  }
  if (framing_ == Framing::length && length > announced_ - taken_) {
    return misuse("the body is longer than announced");
  }
  try {
    if (taken_ == 0) end_head(true);
    taken_ += length;
    state_ = HTTP_SOCK_STATE_CONTENT_SENDING;
    if (body_.size() + length <= gathered_size) {
      body_.append(data, length);
    } else if (!write({data, length}, false)) {
      return -1;
    }
  } catch (const std::bad_alloc&) {
    return fail(ENOMEM);
  }
  return static_cast<ssize_t>(length);
}

/// Decides how the body is framed, now that it is known whether there is one, and ends the head.
void HTTP_Connection::end_head(bool with_body) {
  if (!with_body && !expects_body(method_)) framing_ = Framing::none;
  if (!with_body && framing_ == Framing::unsaid) framing_ = Framing::length;
  if (framing_ == Framing::unsaid) framing_ = Framing::chunked;
  if (!with_body) announced_ = 0;
  if (framing_ == Framing::chunked) {
    head_.append("Transfer-Encoding: chunked\r\n");
  } else if (framing_ == Framing::length) {
    head_.append("Content-Length: ").append(std::to_string(announced_)).append("\r\n");
  }
  head_.append("\r\n");
}

int HTTP_Connection::end() {
  if (error_ != 0) return fail(error_);
  if (!link_) return misuse("the exchange is over");
  try {
    return end_request() ? 0 : -1;
  } catch (const std::bad_alloc&) {
    return fail(ENOMEM);
  }
}

/// Sends what is left of the request, unless that is done.
bool HTTP_Connection::end_request() {
  if (state_ >= HTTP_SOCK_STATE_CONTENT_SENT) return true;
  if (framing_ == Framing::length && taken_ != 0 && taken_ != announced_ && !deaf_) {
    return misuse("the body is shorter than announced") == 0;
  }
  if (taken_ == 0) end_head(false);
  if (!write({}, true)) return false;
  state_ = HTTP_SOCK_STATE_CONTENT_SENT;
  return true;
}

/// Sends what was gathered and `data` behind it; `last` ends the request.
bool HTTP_Connection::write(std::string_view data, bool last) {
  while (!deaf_ && !write_once(data, last)) {
    const int error = errno;
    if (may_send_again(error)) {
      if (!connect()) return fail(errno) == 0;
    } else if (link_->stream.readable()) {
      deaf_ = true;
    } else {
      return fail(error) == 0;
    }
  }
  if (!last) {
    lost_ = true;
    head_.clear();
    body_.clear();
  }
  return true;
}

bool HTTP_Connection::write_once(std::string_view data, bool last) {
  const auto part = [](std::string_view text) {
    return iovec{const_cast<char*>(text.data()), text.size()};
  };
  char size[24] = "";
  std::string_view end;
  const std::size_t length = body_.size() + data.size();
  if (framing_ == Framing::chunked) {
    if (length != 0) std::snprintf(size, sizeof size, "%zx\r\n", length);
    end = last ? (length != 0 ? "\r\n0\r\n\r\n" : "0\r\n\r\n") : "\r\n";
  }
  iovec parts[] = {part(head_), part(size), part(body_), part(data), part(end)};
  return link_->stream.send(parts, static_cast<int>(std::size(parts))) == 0;
}

/// Whether the failure is that of a connection which the server had closed while it waited, and the
/// request is still here and was not begun there.
bool HTTP_Connection::may_send_again(int error) const {
  return reused_ && !lost_ && is_closed(error) && !link_->reader.started() &&
         (is_idempotent(method_) || link_->stream.sent() == sent_before_);
}

int HTTP_Connection::recv_header(HTTP_Response& response) {
  response.reset();
  if (error_ != 0) return fail(error_);
  if (state_ > HTTP_SOCK_STATE_CONTENT_SENT || !link_) return misuse("no response is awaited");
  try {
    if (!end_request()) return -1;
    state_ = HTTP_SOCK_STATE_HEADER_RECEIVING;
    if (receive_head(response) == -1) return -1;
    for (const HTTP_Headers::Field& field : response.headers()) {
      if (field.id == HTTP_HEAD_SET_COOKIE)
        session_->impl_->keep_cookie(field.value.c_str(), path_);
    }
  } catch (const std::bad_alloc&) {
    return fail(ENOMEM);
  }
  link_->expires = expiry(response);
  response.has_body(!link_->reader.done());
  state_ = HTTP_SOCK_STATE_HEADER_RECEIVED;
  if (link_->reader.done()) finish();
  return 0;
}

int HTTP_Connection::receive_head(HTTP_Response& response) {
  while (link_->reader.head(link_->stream, method_ == HTTP_METHOD_HEAD, response) == -1) {
    if (!may_send_again(errno)) return fail(errno);
    if (!connect() || !write_once({}, true)) return fail(errno);
  }
  return 0;
}

ssize_t HTTP_Connection::recv(char* data, std::size_t size) {
  if (error_ != 0) return fail(error_);
  if (state_ == HTTP_SOCK_STATE_CONTENT_RECEIVED) return 0;
  if (state_ < HTTP_SOCK_STATE_HEADER_RECEIVED || data == nullptr || size == 0) {
    return misuse("no body is received now, or there is no room for it");
  }
  state_ = HTTP_SOCK_STATE_CONTENT_RECEIVING;
  const ssize_t got = link_->reader.body(link_->stream, data, size);
  if (got == -1) return fail(errno);
  if (link_->reader.done()) finish();
  return got;
}

ssize_t HTTP_Connection::recv(ACE_Message_Block& block) {
  const ssize_t got = recv(block.wr_ptr(), block.space());
  if (got > 0) block.wr_ptr(static_cast<std::size_t>(got));
  return got;
}

/// The response has been received whole.
void HTTP_Connection::finish() {
  state_ = HTTP_SOCK_STATE_CONTENT_RECEIVED;
  if (!close_ && !deaf_ && link_->reader.reusable()) {
    session_->impl_->give_back(std::move(link_));
  }
  link_.reset();
}

int HTTP_Connection::fail(int error) {
  error_ = error != 0 ? error : EIO;
  state_ = HTTP_SOCK_STATE_CLOSED;
  link_.reset();
  errno = error_;
  return -1;
}

int HTTP_Connection::misuse(const char* what) {
  VEXA_ERROR("HTTP exchange given up, %C\n", what);
  return fail(EINVAL);
}
