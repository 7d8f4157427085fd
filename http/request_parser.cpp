#include "http/request_parser.h"

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/basic_parser.hpp>
#include <boost/beast/http/error.hpp>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "vexa/http_text.h"

namespace http {

namespace beast = boost::beast;
using boost::system::error_code;
using std::size_t;

namespace {

std::string_view view(beast::string_view text) { return {text.data(), text.size()}; }

int method_number(std::string_view name) {
  for (int method = HTTP_METHOD_CONNECT; method <= HTTP_METHOD_TRACE; ++method) {
    const char* const known = http_method_name(method);
    if (known != nullptr && name == known) return method;
  }
  return HTTP_METHOD_UNKNOWN;
}

/// The number of a field that Beast has recognised, or -1.
int head_id(beast::http::field field) {
  constexpr size_t count = static_cast<size_t>(beast::http::field::xref) + 1;
  static const std::array<int, count> ids = [] {
    std::array<int, count> table;
    for (size_t i = 0; i < count; ++i) {
      table[i] = http_head_id(view(to_string(static_cast<beast::http::field>(i))));
    }
    return table;
  }();
  return ids[static_cast<size_t>(field)];
}

/// Beast's parser, which puts what it finds where it belongs.
class Beast_Parser final : public beast::http::basic_parser<true> {
public:
  explicit Beast_Parser(CGI_Request& request) : request_(request) {
    eager(false);
    header_limit(Request_Parser::max_head);
    body_limit(std::numeric_limits<std::uint64_t>::max());
  }

  std::string_view piece() const { return piece_; }
  void forget_piece() { piece_ = {}; }

private:
  void on_request_impl(beast::http::verb, beast::string_view method, beast::string_view target,
                       int version, error_code& error) override {
    error = {};
    request_.method(method_number(view(method)));
    request_.uri(std::string(view(target)));
    request_.minor_version(version % 10);
  }
  void on_response_impl(int, beast::string_view, int, error_code& error) override { error = {}; }
  void on_field_impl(beast::http::field field, beast::string_view name, beast::string_view value,
                     error_code& error) override {
    error = {};
    if (is_header_done()) return;  // a trailer
    const int id = head_id(field);
    request_.headers().append(id < 0 ? http_head_id(view(name)) : id, view(name), view(value));
  }
  void on_header_impl(error_code& error) override { error = {}; }
  void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code& error) override {
    error = {};
  }
  size_t on_body_impl(beast::string_view body, error_code& error) override {
    error = {};
    piece_ = view(body);
    return body.size();
  }
  void on_chunk_header_impl(std::uint64_t, beast::string_view, error_code& error) override {
    error = {};
  }
  size_t on_chunk_body_impl(std::uint64_t, beast::string_view body, error_code& error) override {
    error = {};
    piece_ = view(body);
    return body.size();
  }
  void on_finish_impl(error_code& error) override { error = {}; }

  CGI_Request& request_;
  std::string_view piece_;
};

size_t count_of(const HTTP_Headers& headers, int id) {
  return std::count_if(headers.begin(), headers.end(),
                       [=](const HTTP_Headers::Field& field) { return field.id == id; });
}

}  // namespace

struct Request_Parser::Impl {
  std::optional<Beast_Parser> parser;
  std::string held;           // of a head, or a chunk's line, that is not complete
  bool held_is_used = false;  // it has been parsed
  bool empty_line = false;    // there was one before the request
};

Request_Parser::Request_Parser(CGI_Request& request)
    : impl_(std::make_unique<Impl>()), request_(request) {
  begin();
}
Request_Parser::~Request_Parser() = default;

void Request_Parser::begin() {
  request_.reset();
  impl_->parser.emplace(request_);
  impl_->held.clear();
  impl_->held_is_used = false;
  impl_->empty_line = false;
  status_ = 0;
}

Request_Parser::Outcome Request_Parser::feed(const char* data, size_t length, size_t& used) {
  used = 0;
  std::string& held = impl_->held;
  if (std::exchange(impl_->held_is_used, false)) held.clear();
  if (impl_->parser->is_done()) return COMPLETE;
  if (!held.empty()) return feed_held(data, length, used);
  const Outcome outcome = parse(data, length, used);
  if (outcome != MORE) return outcome;
  held.assign(data + used, length - used);
  used = length;
  return hold();
}

/// The parser wants a head in one piece, and so the line of a chunk's size. A piece of a body is
/// still in what is held until the next feed().
Request_Parser::Outcome Request_Parser::feed_held(const char* data, size_t length, size_t& used) {
  std::string& held = impl_->held;
  const size_t before = held.size();
  held.append(data, length);
  size_t taken;
  const Outcome outcome = parse(held.data(), held.size(), taken);
  if (outcome == MORE) {
    held.erase(0, taken);
    used = length;
    return hold();
  }
  impl_->held_is_used = true;
  used = taken - std::min(taken, before);
  return outcome;
}

/// MORE, unless too much is held.
Request_Parser::Outcome Request_Parser::hold() {
  if (impl_->held.size() <= max_head) return MORE;
  return bad(impl_->parser->is_header_done() ? 400 : 431);
}

Request_Parser::Outcome Request_Parser::parse(const char* data, size_t length, size_t& used) {
  Beast_Parser& parser = *impl_->parser;
  used = 0;
  if (!parser.got_some() && !pass_empty_line({data, length}, used)) return MORE;
  while (used < length) {
    const bool in_head = !parser.is_header_done();
    parser.forget_piece();
    error_code error;
    const size_t taken = parser.put(boost::asio::const_buffer(data + used, length - used), error);
    used += taken;
    if (error == beast::http::error::need_more) return MORE;
    if (error) return bad(error == beast::http::error::header_limit ? 431 : 400);
    if (in_head && parser.is_header_done()) return head_complete();
    if (!parser.piece().empty()) return BODY;
    if (taken > max_head) return bad(400);  // a chunk's line or trailers: as hold() does
    if (parser.is_done()) return COMPLETE;
  }
  return MORE;
}

/// Some clients put an empty line behind a body: one before a request is passed over (RFC 9112
/// section 2.2). False when it may be one that has not come whole.
bool Request_Parser::pass_empty_line(std::string_view text, size_t& used) {
  if (impl_->empty_line || text.empty() || text[0] != '\r') return true;
  if (text.size() == 1) return false;
  if (text[1] == '\n') used = 2;
  impl_->empty_line = true;
  return true;
}

/// Refuses what the parser lets pass and others could read otherwise.
Request_Parser::Outcome Request_Parser::head_complete() {
  const HTTP_Headers& headers = request_.headers();
  const size_t hosts = count_of(headers, HTTP_HEAD_HOST);
  if (hosts > 1 || (hosts == 0 && request_.minor_version() > 0)) return bad(400);
  const char* const coding = headers.get(HTTP_HEAD_TRANSFER_ENCODING);
  if (coding != nullptr) {
    if (request_.minor_version() == 0 || headers.get(HTTP_HEAD_CONTENT_LENGTH) != nullptr) {
      return bad(400);
    }
    if (!vexa::ascii_iequal(coding, "chunked")) return bad(501);
  }
  if (request_.method() == HTTP_METHOD_UNKNOWN) return bad(501);
  return HEAD;
}

Request_Parser::Outcome Request_Parser::bad(int status) {
  status_ = status;
  return BAD;
}

std::string_view Request_Parser::body() const { return impl_->parser->piece(); }

bool Request_Parser::keep_alive() const { return impl_->parser->keep_alive(); }

bool Request_Parser::has_body() const {
  return impl_->parser->chunked() || impl_->parser->content_length().value_or(0) > 0;
}

size_t Request_Parser::content_length() const {
  const auto length = impl_->parser->content_length();
  return length ? static_cast<size_t>(*length) : std::string::npos;
}

bool Request_Parser::begun() const { return impl_->parser->got_some() || !impl_->held.empty(); }

}  // namespace http
