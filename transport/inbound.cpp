#include "transport/inbound.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "transport/answer_endpoint.h"
#include "transport/owed_request.h"
#include "vexa/log.h"

namespace transport {

namespace {

constexpr unsigned int max_bad_in_a_row = 3;

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

/// Requests are of a class that sees to their answer.
class Inbound::Reader final : public JSON_RPC_Reader {
protected:
  JSON_RPC_Request* make_request() override {
    JSON_RPC_Request* const request = new (std::nothrow) Owed_Request;
    if (request == nullptr) errno = ENOMEM;
    return request;
  }
};

Inbound::Inbound(Stream_Channel& channel, Sink& sink, bool complains)
    : channel_(channel), sink_(sink), complains_(complains), reader_(std::make_unique<Reader>()) {
  reader_->mode(JSON_RPC_Reader::OBJECT_MODE | JSON_RPC_Reader::FORWARD_RESPONSE_MODE |
                JSON_RPC_Reader::FILTER_REQUEST_MODE);
}

Inbound::~Inbound() = default;

Inbound::Verdict Inbound::feed(const char* data, std::size_t length, std::size_t& used) {
  used = 0;
  if (!stopped_ && state_ == BETWEEN && sink_.overloaded()) return PAUSE;
  while (used < length && !stopped_) {
    used += step(data + used, length - used);
    if (state_ == BETWEEN && used < length && sink_.overloaded()) return PAUSE;
  }
  return stopped_ ? STOP : GO_ON;
}

/// Takes bytes as the state wants them; at most up to the end of a message. Gives how many.
std::size_t Inbound::step(const char* data, std::size_t length) {
  switch (state_) {
    case BETWEEN:
      return between(data, length);
    case HEADER:
      return header(data, length);
    case SKIP_BY_LENGTH: {
      const std::size_t used = std::min(length, body_left_);
      body_left_ -= used;
      if (body_left_ == 0) end_text();
      return used;
    }
    default:
      return within_limit(data, length);
  }
}

/// Takes bytes of a text, or of what is skipped, as far as a message may go.
std::size_t Inbound::within_limit(const char* data, std::size_t length) {
  const std::size_t limit = channel_.limits().max_message;
  if (limit != 0 && size_ == limit) {
    VEXA_WARNING("Channel %C sent a message of more than %B bytes.\n", channel_.id().c_str(),
                 limit);
    if (state_ == TEXT) bad(JSON_RPC_INVALID_REQUEST);  // what is skipped has been answered
    stopped_ = true;
    return length;
  }
  if (limit != 0) length = std::min(length, limit - size_);
  if (state_ == TEXT) return text(data, length);
  std::size_t used = length;
  if (state_ == SKIP_BY_LINE) {
    used = skip_line(data, length);
  } else if (feeder_.skip(data, length, used)) {
    end_text();
  }
  size_ += used;
  return used;
}

std::size_t Inbound::between(const char* data, std::size_t length) {
  std::size_t blank = 0;
  while (blank < length && is_space(data[blank])) ++blank;
  if (blank == length) return length;
  if (!framed_ && !kept_apart()) {
    framed_ = true;
    if (data[blank] == 'C' || data[blank] == 'c') channel_.framing(Framing::HEADERS);
  }
  if (headers()) {
    header_.begin();
    state_ = HEADER;
  } else if (begin_text()) {
    state_ = TEXT;
  }
  return blank;
}

bool Inbound::begin_text() {
  size_ = 0;
  if (kept_apart()) body_left_ = std::numeric_limits<std::size_t>::max();
  feeder_.begin();
  if (!reader_->open()) {
    stop(JSON_RPC_INTERNAL_ERROR);
    return false;
  }
  reader_->channel(channel_.self());
  reader_->request_channel(JSON_RPC_Channel_var(channel_.self()));
  return true;
}

std::size_t Inbound::header(const char* data, std::size_t length) {
  std::size_t used;
  switch (header_.feed(data, length, used)) {
    case Header_Reader::MORE:
      break;
    case Header_Reader::BAD:
      stop(JSON_RPC_INVALID_REQUEST);
      break;
    case Header_Reader::COMPLETE: {
      body_left_ = header_.content_length();
      const std::size_t limit = channel_.limits().max_message;
      if (body_left_ == 0 || (limit != 0 && body_left_ > limit)) {
        VEXA_WARNING("Channel %C announced a message of %B bytes.\n", channel_.id().c_str(),
                     body_left_);
        stop(JSON_RPC_INVALID_REQUEST);
      } else if (begin_text()) {
        state_ = TEXT;
      }
      break;
    }
  }
  return used;
}

std::size_t Inbound::text(const char* data, std::size_t length) {
  if (by_length() && length > body_left_) length = body_left_;
  std::size_t used;
  Text_Feeder::Outcome outcome = feeder_.feed(*reader_, data, length, used);
  size_ += used;
  if (by_length()) {
    body_left_ -= used;
    if (outcome == Text_Feeder::MORE && body_left_ == 0) outcome = feeder_.finish(*reader_);
  }
  switch (outcome) {
    case Text_Feeder::MORE:
      return used;
    case Text_Feeder::COMPLETE:
      deliver();
      end_text();
      return used;
    case Text_Feeder::NO_JSON:
      bad(JSON_RPC_PARSE_ERROR);
      state_ = SKIP_BY_LINE;
      break;
    case Text_Feeder::REFUSED:
      bad(JSON_RPC_INVALID_REQUEST);
      state_ = SKIP_BY_BRACE;
      break;
    case Text_Feeder::REFUSED_AT_END:
      bad(JSON_RPC_INVALID_REQUEST);
      end_text();
      return used;
  }
  if (by_length()) {
    state_ = SKIP_BY_LENGTH;
    if (body_left_ == 0) end_text();
  }
  return used;
}

std::size_t Inbound::skip_line(const char* data, std::size_t length) {
  const void* const line_feed = std::memchr(data, '\n', length);
  if (line_feed == nullptr) return length;
  state_ = BETWEEN;
  return static_cast<const char*>(line_feed) - data + 1;
}

/// The text has ended, good or bad. What carries it may go on: white space, or garbage that its
/// length passes over.
void Inbound::end_text() {
  feeder_.clear();
  reader_->close();
  state_ = by_length() && body_left_ > 0 ? SKIP_BY_LENGTH : BETWEEN;
}

void Inbound::deliver() {
  const JSON_RPC_Object_var* const message = reader_->message();
  if (message == nullptr) {
    if (!relaying()) return bad(JSON_RPC_INVALID_REQUEST);
    channel_.count(Metrics::RELAYS_ENDED);
    bad_in_a_row_ = 0;
    relayed_much_ = size_ > Answer_Endpoint::held_most;
    return;
  }
  const JSON_RPC_Object& object = **message;
  const bool call =
      object.type == JSON_RPC_Object::TYPE_REQUEST || object.type == JSON_RPC_Object::TYPE_NOTIFY;
  if (call && static_cast<const JSON_RPC_Request&>(object).method.empty()) {
    bad(JSON_RPC_INVALID_REQUEST);
    return;
  }
  bad_in_a_row_ = 0;
  relayed_much_ = !call && size_ > Answer_Endpoint::held_most;
  sink_.message(*message, size_);
}

/// The text is no message. It is answered once, unless it was to be an answer: then whoever waits
/// for it learns that it will not come. Where nobody can tell whose answer it was, nothing that is
/// awaited can be trusted to come.
void Inbound::bad(int code) {
  channel_.count(code == JSON_RPC_PARSE_ERROR ? Metrics::PARSE_FAILURES : Metrics::BAD_MESSAGES);
  if (relaying()) {
    // It may be the requester that failed, and has been let go: not this peer's fault.
    if (reader_->request_channel().null()) return reader_->close();
    abandon_relay();
  } else if (!answer_failed() && complains_) {
    channel_.complain(code == JSON_RPC_PARSE_ERROR ? json_spirit::Value() : reader_->id(), code);
  }
  reader_->close();
  if (++bad_in_a_row_ == max_bad_in_a_row) {
    VEXA_WARNING("Channel %C sent %u bad messages in a row.\n", channel_.id().c_str(),
                 bad_in_a_row_);
    stopped_ = true;
  }
}

/// Whether the text was to be an answer; then it has been failed.
bool Inbound::answer_failed() {
  const unsigned int members = reader_->members();
  const bool answer = members & (JSON_RPC_Reader::RESULT_BIT | JSON_RPC_Reader::ERROR_BIT);
  const bool call = members & (JSON_RPC_Reader::METHOD_BIT | JSON_RPC_Reader::PARAMS_BIT);
  if (members == 0 || (call && !answer)) return false;
  if (!reader_->id().is_null()) return channel_.fail_answer(reader_->id(), answer);
  if (channel_.awaits_answers()) {
    VEXA_WARNING("Channel %C sent what may have been any of the answers that it owes.\n",
                 channel_.id().c_str());
    stopped_ = true;
  }
  return answer;
}

bool Inbound::relaying() const { return reader_->state() == JSON_RPC_Reader::STATE_FORWARDING; }

/// Does something with the endpoint of the answer that is being relayed, if one is.
template <typename Operation>
void Inbound::with_relay(Operation operation) const {
  if (!relaying()) return;
  const JSON_RPC_Channel_var requester = reader_->request_channel();
  Answer_Endpoint* const endpoint = dynamic_cast<Answer_Endpoint*>(requester.get());
  if (endpoint != nullptr) operation(*endpoint);
}

bool Inbound::relay_waits(const std::weak_ptr<Wire>& source) {
  bool waits = false;
  with_relay([&](Answer_Endpoint& endpoint) { waits = !endpoint.may_go_on(source); });
  if (waits || !relayed_much_) return waits;
  return relayed_much_ = channel_.last_requester_waits(source);
}

void Inbound::pass_on_relay() {
  with_relay([](Answer_Endpoint& endpoint) { endpoint.pass_on_begun(); });
}

void Inbound::abandon_relay() {
  with_relay([this](Answer_Endpoint& endpoint) {
    channel_.count(Metrics::RELAYS_FAILED);
    endpoint.abandon();
  });
}

/// Nothing that follows can be made out, or is wanted.
void Inbound::stop(int code) {
  bad(code);
  stopped_ = true;
}

/// No more of the text will come.
void Inbound::finish_text() {
  switch (feeder_.finish(*reader_)) {
    case Text_Feeder::COMPLETE:
      return deliver();
    case Text_Feeder::REFUSED_AT_END:
      return bad(JSON_RPC_INVALID_REQUEST);
    default:
      return bad(JSON_RPC_PARSE_ERROR);
  }
}

Inbound::Verdict Inbound::end_message() {
  if (stopped_) return STOP;
  if (state_ == TEXT) {
    finish_text();
  } else if (state_ == BETWEEN && begin_text()) {  // it was empty
    bad(JSON_RPC_PARSE_ERROR);
  }
  body_left_ = 0;
  end_text();
  return stopped_ ? STOP : GO_ON;
}

void Inbound::end() {
  if (stopped_) return;
  if (state_ == TEXT) {
    finish_text();
  } else if (state_ == HEADER) {
    bad(JSON_RPC_INVALID_REQUEST);
  }
  stopped_ = true;
  reader_->close();
}

}  // namespace transport
