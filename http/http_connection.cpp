#include "http/http_connection.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "http/media_type.h"
#include "http/target.h"
#include "http/websocket_upgrade.h"
#include "transport/rpc_errors.h"
#include "vexa/exception_text.h"
#include "vexa/http_text.h"
#include "vexa/log.h"

namespace http {

using transport::Loop;
using transport::Output_Piece;

namespace {

constexpr std::size_t dropped_most = 64u << 10;  // bytes of a refused body that are waited for
constexpr std::size_t joined_most = 16u << 10;   // bytes of an answer that are copied behind a head
constexpr std::size_t head_room = 160;           // bytes of a head without CORS lines
constexpr std::size_t file_piece = 64u << 10;

Output_Piece piece_of(std::string text) {
  Output_Piece piece;
  piece.own = std::move(text);
  return piece;
}

}  // namespace

Http_Connection::Http_Connection(transport::Opened opened,
                                 std::shared_ptr<const Door_Options> options)
    : Connection(std::move(opened)), options_(std::move(options)), parser_(head_.request) {}

Http_Connection::~Http_Connection() = default;

void Http_Connection::start() {
  begin(transport::Stream_Channel::HTTP, transport::Framing::BODIES, state()->limits);
  guarded([this] {
    head_.local = addresses().local;
    head_.remote = addresses().remote;
    head_.tls = bytes().is_tls();
    intake_.emplace(stream(), *state(), weak_from_this(), options_->filter);
    inbound_.reset(new transport::Inbound(stream(), *this, true));
    read();
  });
}

std::size_t Http_Connection::owed() const { return state_ == ANSWER || file_.left() > 0 ? 1 : 0; }

// The request.

bool Http_Connection::consume(const char* data, std::size_t length) {
  while (!closed() && state_ == READ) {
    if (!head_done_ && length == 0) return true;
    if (!head_done_ && !has_room()) break;
    std::size_t used;
    const Request_Parser::Outcome outcome = parser_.feed(data, length, used);
    data += used;
    length -= used;
    switch (outcome) {
      case Request_Parser::MORE:
        if (begun_at_ == transport::Loop_Time() && parser_.begun()) begun_at_ = Loop::now();
        return true;
      case Request_Parser::HEAD:
        head_complete();
        break;
      case Request_Parser::BODY:
        body(parser_.body());
        break;
      case Request_Parser::COMPLETE:
        request_complete({data, length});
        break;
      case Request_Parser::BAD:
        refuse_now(parser_.status());
        break;
    }
  }
  if (!closed() && state_ != ENDED) pause(data, length);
  return false;
}

void Http_Connection::head_complete() {
  head_done_ = true;
  current_.keep_alive = parser_.keep_alive() && !state()->stopping;
  Target target;
  const int bad_target = parse_target(head_.request.uri_text(), target);
  if (bad_target != 0) return refuse_now(bad_target);
  head_.path = std::move(target.path);
  head_.query = std::move(target.query);
  if (!options_->origins.host_allowed(head_)) return refuse(403, "This host is not served here");
  if (!options_->origins.origin_allowed(head_)) return refuse(403, "This origin is not allowed");
  if (options_->origins.is_foreign(head_)) {
    current_.cors = std::string("Access-Control-Allow-Origin: ") +
                    head_.request.headers().get("Origin") + "\r\nVary: Origin\r\n";
  }
  route();
}

bool Http_Connection::wants_upgrade() const {
  const HTTP_Headers& headers = head_.request.headers();
  return options_->websocket && head_.request.method() == HTTP_METHOD_GET &&
         http_header_value_contains(headers.get(HTTP_HEAD_UPGRADE), "websocket", ',') &&
         http_header_value_contains(headers.get(HTTP_HEAD_CONNECTION), "upgrade", ',');
}

bool Http_Connection::is_preflight() const {
  return !current_.cors.empty() && head_.request.method() == HTTP_METHOD_OPTIONS &&
         head_.request.headers().get("Access-Control-Request-Method") != nullptr;
}

void Http_Connection::route() {
  const bool rpc = !options_->rpc_path.empty() && head_.path == options_->rpc_path;
  if ((rpc || !options_->http) && wants_upgrade()) {
    current_.use = UPGRADE;
  } else if (!options_->http) {
    refuse(426);
  } else if (is_preflight()) {
    refuse(204);
  } else if (rpc) {
    route_rpc();
  } else if (options_->site == nullptr) {
    refuse(404);
  } else if (options_->site->wants_body(head_)) {
    expect_body(SITE);
  } else if (must_not_wait()) {
    current_.keep_alive = false;
    answer_site();
  } else {
    current_.use = PASS;
  }
}

/// Whether a body is announced that nobody wants, and that is not worth waiting for, or waits
/// itself.
bool Http_Connection::must_not_wait() const {
  const std::size_t length = parser_.content_length();
  const bool waits = head_.request.headers().get(HTTP_HEAD_EXPECT) != nullptr;
  const bool large = length != std::string::npos && length > dropped_most;
  return parser_.has_body() && (waits || large);
}

void Http_Connection::route_rpc() {
  if (head_.request.method() != HTTP_METHOD_POST) return refuse(405, nullptr, "POST");
  if (!is_json(head_.request.headers(), false)) {
    return refuse(415, "The body must be application/json, without a Content-Encoding");
  }
  expect_body(RPC);
}

void Http_Connection::expect_body(Use use) {
  const std::size_t limit = state()->limits.max_message;
  const std::size_t length = parser_.content_length();
  if (limit != 0 && length != std::string::npos && length > limit) return refuse_now(413);
  current_.use = use;
  const char* const expect = head_.request.headers().get(HTTP_HEAD_EXPECT);
  if (expect == nullptr || head_.request.minor_version() == 0) return;
  if (!vexa::ascii_iequal(expect, "100-continue")) return refuse_now(417);
  if (parser_.has_body()) put("HTTP/1.1 100 Continue\r\n\r\n");
}

/// Answers with an error, when the body has been thrown away: the connection can then be used on.
void Http_Connection::refuse(int status, const char* reason, const char* allow) {
  current_.use = DROP;
  current_.status = status;
  current_.reason = reason;
  current_.allow = allow;
  if (must_not_wait()) refuse_now(status);
}

void Http_Connection::respond_refusal() {
  if (current_.status == 204) return respond_preflight();
  HTTP_Headers headers;
  if (current_.allow != nullptr) headers.put(HTTP_HEAD_ALLOW, current_.allow);
  if (current_.status == 426) {
    headers.put(HTTP_HEAD_UPGRADE, "websocket");
    headers.put(websocket_version_field, websocket_version);
  }
  if (current_.status == 503) headers.put(HTTP_HEAD_RETRY_AFTER, "1");
  respond_error(*this, current_.status, current_.reason, std::move(headers));
}

/// Answers at once; what still comes is not read any more.
void Http_Connection::refuse_now(int status) {
  current_.keep_alive = false;
  current_.status = status;
  respond_refusal();
}

void Http_Connection::body(std::string_view piece) {
  current_.body_bytes += piece.size();
  const std::size_t limit = state()->limits.max_message;
  if (current_.use == DROP || current_.use == PASS) {
    if (current_.body_bytes <= dropped_most) return;
    current_.keep_alive = false;
    return current_.use == DROP ? refuse_now(current_.status) : answer_site();
  }
  if (limit != 0 && current_.body_bytes > limit) return refuse_now(413);
  if (current_.use == SITE) current_.body.append(piece);
  if (current_.use != RPC) return;
  std::size_t used;
  inbound_->feed(piece.data(), piece.size(), used);
}

void Http_Connection::request_complete(std::string_view rest) {
  switch (current_.use) {
    case RPC:
      return rpc_complete();
    case SITE:
    case PASS:
      return answer_site();
    case UPGRADE:
      return upgrade(rest);
    case DROP:
      return respond_refusal();
  }
}

void Http_Connection::rpc_complete() {
  if (inbound_->end_message() == transport::Inbound::STOP) current_.keep_alive = false;
  if (current_.notification) return respond(200, HTTP_Headers(), std::string());
  state_ = ANSWER;
  if (current_.got_message) return collect();
  const unsigned long long number = current_.number;
  current_.status = 400;
  collect();
  if (current_.number != number) return;
  // A response, say: nobody has complained of it.
  stream().complain(json_spirit::Value(), JSON_RPC_INVALID_REQUEST);
  collect();
}

void Http_Connection::message(const JSON_RPC_Object_var& object, std::size_t bytes) {
  if (object->type == JSON_RPC_Object::TYPE_RESPONSE ||
      object->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR) {
    return;  // of no call that was made here: it is refused
  }
  current_.got_message = true;
  current_.notification = object->type == JSON_RPC_Object::TYPE_NOTIFY;
  intake_->message(object, bytes);
  const int refusal = intake_->refusal();
  if (refusal == transport::server_busy || refusal == transport::server_stopping) {
    current_.status = 503;
  }
}

void Http_Connection::answer_site() {
  state_ = ANSWER;
  if (state()->stopping) return refuse_now(503);
  const unsigned long long number = current_.number;
  try {
    options_->site->answer(head_, current_.body, *this);
  } catch (...) {
    VEXA_ERROR("A request failed: %C\n", vexa::exception_text());
    if (!closed() && number == current_.number && state_ == ANSWER) refuse_now(500);
  }
}

/// The stream goes to whoever serves WebSocket; so much for HTTP.
void Http_Connection::upgrade(std::string_view rest) {
  if (stream().outbox().owes() || !ready_.empty()) return refuse_now(503);
  const char* const version = head_.request.headers().get(websocket_version_field);
  if (version != nullptr && std::string_view(version) != websocket_version) {
    current_.status = 426;
    return respond_refusal();
  }
  if (!is_websocket_handshake(head_.request)) {
    return respond_error(*this, 400, "This is no WebSocket handshake");
  }
  transport::Opened opened = release();
  close(nullptr);
  serve_websocket(std::move(opened), head_.request, std::string(rest), options_->filter);
}

// The answer.

void Http_Connection::collect() {
  if (!stream().outbox().take(taken_)) return;
  for (Output_Piece& piece : taken_) add_piece(std::move(piece));
  taken_.clear();
}

/// A part of the answer, or all of it. A second message would be nobody's.
void Http_Connection::add_piece(Output_Piece piece) {
  if (state_ != ANSWER) return stream().outbox().sent(piece.text().size(), piece.answers);
  std::string head;
  if (!std::exchange(current_.begun, true)) begin_answer(piece, head);
  const std::size_t size = piece.text().size();
  const bool last = piece.last;
  const bool chunked = current_.body_end == Body_End::CHUNKED;
  if (chunked && size > 0) {
    char line[24];
    head.append(line, std::snprintf(line, sizeof line, "%zx\r\n", size));
  }
  if (size <= joined_most && !head.empty()) {
    stream().outbox().adopt(head.size());
    head.append(piece.text());
    piece.own = std::move(head);
    piece.shared.reset();
  } else if (!head.empty()) {
    put(std::move(head));
  }
  if (piece.text().size() > 0) ready_.push_back(std::move(piece));
  if (chunked && size > 0) put("\r\n");
  if (chunked && last) put("0\r\n\r\n");
  if (last) finished();
}

/// The head of an answer whose first piece is there: all of it, or the length is not known.
void Http_Connection::begin_answer(const Output_Piece& piece, std::string& text) {
  if (!piece.last) {
    const bool chunks = head_.request.minor_version() > 0;
    current_.body_end = chunks ? Body_End::CHUNKED : Body_End::CLOSE;
    if (!chunks) current_.keep_alive = false;
  }
  Response_Head head;
  head.status = current_.status;
  head.content_type = "application/json";
  head.length = piece.text().size();
  text.reserve(head_room + current_.cors.size() +
               std::min(head.length, std::uint64_t(joined_most)));
  write_head(head, text);
}

void Http_Connection::write_head(Response_Head head, std::string& text) const {
  head.keep_alive = current_.keep_alive && !state()->stopping;
  head.http_1_0 = head_.request.minor_version() == 0;
  head.end = current_.body_end;
  head.extra = current_.cors;
  if (head.status == 204 || head.status == 304) head.end = Body_End::NONE;
  head.append_to(text);
}

void Http_Connection::put(std::string text) {
  stream().outbox().adopt(text.size());
  ready_.push_back(piece_of(std::move(text)));
}

void Http_Connection::respond_preflight() {
  HTTP_Headers headers;
  headers.put("Access-Control-Allow-Methods", "GET, HEAD, POST, PUT, DELETE, PATCH");
  headers.put("Access-Control-Allow-Headers", "Content-Type");
  headers.put("Access-Control-Max-Age", "600");
  respond(204, headers, std::string());
}

void Http_Connection::respond(int status, const HTTP_Headers& headers, std::string body) {
  guarded([&] {
    if (status == 204 || status == 304) body.clear();
    Response_Head head;
    head.status = status;
    head.headers = &headers;
    head.length = body.size();
    std::string text;
    write_head(head, text);
    if (!head_only() && body.size() <= joined_most) text += body;
    put(std::move(text));
    if (!head_only() && body.size() > joined_most) put(std::move(body));
    finished();
  });
}

void Http_Connection::respond_file(int status, const HTTP_Headers& headers, int descriptor,
                                   std::uint64_t offset, std::uint64_t length) {
  Open_File file(descriptor, offset, length);
  guarded([&] {
    Response_Head head;
    head.status = status;
    head.headers = &headers;
    head.length = length;
    std::string text;
    write_head(head, text);
    put(std::move(text));
    if (head_only() || length == 0) return finished();
    file_ = std::move(file);
  });
}

/// The next bytes of the file that is being sent. A file that has become shorter cannot be sent as
/// announced.
void Http_Connection::read_file() {
  std::string text;
  if (!file_.read(text, file_piece)) return close("a file could not be sent whole");
  put(std::move(text));
  if (file_.left() > 0) return;
  file_ = Open_File();
  finished();
}

Exchange::Later Http_Connection::defer() {
  return [weak = weak_from_this(), loop = loop(), number = current_.number](
             int status, HTTP_Headers headers, std::string body) {
    boost::asio::post(loop->context(), [weak, number, status, headers = std::move(headers),
                                        body = std::move(body)]() mutable {
      const auto self = std::static_pointer_cast<Http_Connection>(weak.lock());
      if (self == nullptr || self->closed() || self->current_.number != number) return;
      self->respond(status, headers, std::move(body));
      self->flush();
    });
  };
}

/// The answer is on its way.
void Http_Connection::finished() {
  const unsigned long long next = current_.number + 1;
  if (!current_.keep_alive || state()->stopping) {
    state_ = ENDED;
    stop_reading();
  } else {
    state_ = READ;
    parser_.begin();
  }
  current_ = Current();
  current_.number = next;
  head_done_ = false;
  begun_at_ = transport::Loop_Time();
}

bool Http_Connection::take(std::vector<Output_Piece>& batch) {
  if (state_ == ENDED || (state_ == ANSWER && current_.use == RPC)) collect();
  if (ready_.empty() && file_.left() > 0) read_file();
  if (closed() || ready_.empty()) return false;
  batch.swap(ready_);
  return true;
}

// What a connection asks of its protocol.

/// Whether the next request may be read: its peer takes what it is sent.
bool Http_Connection::has_room() const {
  return stream().outbox().unsent() <= state()->limits.queue_mark();
}

bool Http_Connection::can_go_on() const { return paused() && state_ == READ && has_room(); }

void Http_Connection::try_resume() {
  stream().outbox().attend();
  intake_->dispatch_parked();
  if (can_go_on()) return go_on();
  flush();
}

void Http_Connection::end_of_input() {
  if (state_ == READ) state_ = ENDED;  // also within a request: nobody is there to answer
  flush();
}

bool Http_Connection::owes_more() const {
  return state_ == ANSWER || !ready_.empty() || file_.left() > 0;
}

bool Http_Connection::expects(transport::Loop_Time& since) const {
  if (state_ != READ || !parser_.begun()) return false;
  if (!head_done_ && begun_at_ != transport::Loop_Time()) since = begun_at_;
  return true;
}

void Http_Connection::stalled() {
  refuse_now(408);
  flush();
}

/// A subscription does not count: no notification goes out here.
bool Http_Connection::idle_allowed() { return state_ == ANSWER || stream().outbox().owes(); }

/// What a handler of the site has not answered yet is answered for it; JSON-RPC has been.
void Http_Connection::give_up_owed() {
  intake_->clear();
  if (state_ != ANSWER) return;
  current_.keep_alive = false;
  current_.status = 503;
  if (current_.use != RPC && file_.left() == 0) refuse_now(503);
}

}  // namespace http
