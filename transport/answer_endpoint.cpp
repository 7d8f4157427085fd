#include "transport/answer_endpoint.h"

#include <cerrno>
#include <new>

#include "json_rpc/json_rpc_forward_map.h"
#include "transport/stream_channel.h"
#include "vexa/json_generator.h"

namespace transport {

namespace {

constexpr std::size_t piece = 256u << 10;  // bytes gathered before the line is touched again

Stream_Channel& stream_of(const JSON_RPC_Channel_var& channel) {
  return static_cast<Stream_Channel&>(*channel);
}

}  // namespace

Answer_Endpoint::Answer_Endpoint(const JSON_RPC_Channel_ptr& requester,
                                 const json_spirit::Value& id)
    : requester_(requester), id_(id) {}

Answer_Endpoint::~Answer_Endpoint() {
  if (state_ == IN_LINE) break_off();
  const JSON_RPC_Channel_var requester(requester_);
  if (!requester.null()) stream_of(requester).request_gone(id_);
}

void Answer_Endpoint::release() {
  const JSON_RPC_Channel_var requester(requester_);
  if (!requester.null()) stream_of(requester).drop_endpoint(*this);
}

void Answer_Endpoint::fail(int error) {
  error_ = error;
  std::string().swap(text_);
}

int Answer_Endpoint::send(JSON_RPC_Object_var obj) {
  const JSON_RPC_Channel_var requester(requester_);
  if (requester.null()) {
    errno = ENOTCONN;
    return -1;
  }
  const int result = requester->send(obj);
  const int error = errno;
  release();
  errno = error;
  return result;
}

int Answer_Endpoint::send(JSON_Generator& gen) {
  yajl_gen_t* const out = send_begin();
  if (out == nullptr) return -1;
  if (gen.generate(out)) return send_end();
  abandon();
  errno = EINVAL;
  return -1;
}

yajl_gen_t* Answer_Endpoint::send_begin() {
  yajl_gen_t* const gen = writer_.open(*this);
  if (gen == nullptr) {
    abandon();
    errno = ENOMEM;
  }
  return gen;
}

void Answer_Endpoint::print(const char* text, std::size_t length) {
  if (error_ != 0 || state_ == DONE) return;
  try {
    text_.append(text, length);
    if (text_.size() >= (state_ == HELD ? held_most : piece)) pass_on();
  } catch (const std::bad_alloc&) {
    fail(ENOMEM);
  }
}

/// Moves what has been gathered into the requester's line.
void Answer_Endpoint::pass_on() {
  const JSON_RPC_Channel_var channel(requester_);
  if (channel.null()) return fail(ENOTCONN);
  Stream_Channel& requester = stream_of(channel);
  if (requester.framing() == Framing::HEADERS) return;
  bool wake;
  const Outbox::Result result = state_ == HELD ? requester.begin_open(text_, &id_, stream_, wake)
                                               : requester.outbox().append(stream_, text_, wake);
  if (result != Outbox::SENT) {
    requester.report_dropped(result, id_);
    return fail(errno);
  }
  state_ = IN_LINE;
  text_.clear();
  if (wake) requester.wake();
}

void Answer_Endpoint::pass_on_begun() {
  if (state_ == IN_LINE && error_ == 0 && !text_.empty()) pass_on();
}

int Answer_Endpoint::send_end() {
  const JSON_RPC_Channel_var requester(requester_);
  if (error_ == 0) error_ = requester.null() ? ENOTCONN : finish(stream_of(requester));
  const int error = error_;
  if (error != 0) {
    abandon();
    errno = error;
    return -1;
  }
  state_ = DONE;
  release();
  return 0;
}

/// The rest, in the requester's line: 0 or an errno.
int Answer_Endpoint::finish(Stream_Channel& requester) {
  try {
    text_ += '\n';
    return put_rest(requester) == 0 ? 0 : errno;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

int Answer_Endpoint::put_rest(Stream_Channel& requester) {
  if (state_ == HELD) return requester.put(Outbox::ANSWER, id_, text_);
  bool wake;
  if (requester.outbox().end(stream_, text_, wake) != Outbox::SENT) {
    errno = ENOTCONN;
    return -1;
  }
  if (wake) requester.wake();
  return 0;
}

void Answer_Endpoint::abandon() {
  if (state_ == DONE) return;
  break_off();
  release();
}

void Answer_Endpoint::break_off() {
  const State state = state_;
  state_ = DONE;
  const JSON_RPC_Channel_var channel(requester_);
  if (channel.null()) return;
  Stream_Channel& requester = stream_of(channel);
  if (state == IN_LINE) {
    requester.break_off(stream_, id_, JSON_RPC_Forward_Map::CLOSED);
  } else {
    requester.answer_error(id_, JSON_RPC_INTERNAL_ERROR, JSON_RPC_Forward_Map::CLOSED);
  }
}

bool Answer_Endpoint::may_go_on(const std::weak_ptr<Wire>& source) {
  const bool small = state_ == HELD && text_.size() < held_most;
  if (small || state_ == DONE || error_ != 0) return true;
  const JSON_RPC_Channel_var requester(requester_);
  if (requester.null()) return true;
  Stream_Channel& stream = stream_of(requester);
  return stream.outbox().may_grow(stream_, stream.limits().queue_mark(), source);
}

int Answer_Endpoint::get_local_addr(ACE_Addr& addr) {
  const JSON_RPC_Channel_var requester(requester_);
  return requester.null() ? -1 : requester->get_local_addr(addr);
}

int Answer_Endpoint::get_remote_addr(ACE_Addr& addr) {
  const JSON_RPC_Channel_var requester(requester_);
  return requester.null() ? -1 : requester->get_remote_addr(addr);
}

HTTP_SOCK_State Answer_Endpoint::response_state() {
  const JSON_RPC_Channel_var requester(requester_);
  return requester.null() ? HTTP_SOCK_STATE_CLOSED : requester->response_state();
}

}  // namespace transport
