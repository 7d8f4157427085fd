#include "transport/stream_channel.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_fan_out.h"
#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_response_map.h"
#include "json_rpc/json_rpc_writer.h"
#include "transport/answer_endpoint.h"
#include "transport/current_message.h"
#include "transport/outgoing_stream.h"
#include "vexa/adopt.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"
#include "vexa/on_exit.h"

namespace transport {

namespace {

const char* const channel_closed = "Internal error, channel is closed.";
const char* const no_memory = "there is no memory for it";
const char* const broken_answer = "Internal error, the answer is broken.";

/// A buffer for the text of one message, kept by the thread from one to the next.
std::string& scratch() {
  constexpr std::size_t kept = 1u << 20;
  thread_local std::string buffer;
  if (buffer.capacity() > kept) std::string().swap(buffer);
  buffer.clear();
  return buffer;
}

/// The text of a message with its line feed; false when it holds a value that cannot be written.
bool serialise(const JSON_RPC_Object& obj, std::string& text) {
  YAJL_String_Printer printer(text);
  JSON_RPC_Writer writer;
  if (!writer.write(obj, printer)) return false;
  text += '\n';
  return true;
}

int fail(int error) {
  errno = error;
  return -1;
}

/// Runs what composes and queues a message. Exceptions end here: memory, or the caller's generator.
template <typename Operation>
int guarded(Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return fail(ENOMEM);
  } catch (...) {
    VEXA_ERROR("A generator failed: %C\n", vexa::exception_text());
    return fail(EINVAL);
  }
}

bool is_response(const JSON_RPC_Object& obj) {
  return obj.type == JSON_RPC_Object::TYPE_RESPONSE ||
         obj.type == JSON_RPC_Object::TYPE_RESPONSE_ERROR;
}

Outbox::Kind kind_of(const JSON_RPC_Object& obj) {
  if (is_response(obj)) return Outbox::ANSWER;
  return obj.type == JSON_RPC_Object::TYPE_NOTIFY ? Outbox::NOTICE : Outbox::CALL;
}

int code_of(const JSON_RPC_Object& obj) {
  if (obj.type != JSON_RPC_Object::TYPE_RESPONSE_ERROR) return 0;
  return static_cast<int>(static_cast<const JSON_RPC_Response_Error&>(obj).code);
}

JSON_RPC_Response_Error error_response(const json_spirit::Value& id, int code,
                                       const char* message) {
  JSON_RPC_Response_Error error;
  error.id = id;
  error.code = code;
  if (message == nullptr) message = json_rpc_error_message(code);
  if (message != nullptr) error.message = message;
  return error;
}

/// -32603 as an object. Throws without memory.
JSON_RPC_Object_var internal_error(const json_spirit::Value& id, const char* message) {
  JSON_RPC_Object_var object;
  if (!vexa::adopt(object, static_cast<JSON_RPC_Object*>(new JSON_RPC_Response_Error(
                               error_response(id, JSON_RPC_INTERNAL_ERROR, message))))) {
    throw std::bad_alloc();
  }
  return object;
}

/// Whether a response's id can be one that a forward map gave out.
bool forward_id_of(const json_spirit::Value& id, int& forward_id) {
  if (id.type() != json_spirit::int_type || id.is_uint64()) return false;
  const std::int64_t number = id.get_int64();
  forward_id = static_cast<int>(number);
  return number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
}

void forget_waiter(const json_spirit::Value& id) { JSON_RPC_Response_Map::instance()->remove(id); }

}  // namespace

/// A message that send_begin() opened: its thread, and the generator that it writes with.
struct Stream_Channel::Open_Message {
  explicit Open_Message(Stream_Channel& channel)
      : thread(std::this_thread::get_id()), stream(channel), gen(writer.open(stream)) {}

  const std::thread::id thread;
  bool abandoned = false;  // its handler has left it
  Outgoing_Stream stream;
  JSON_RPC_Writer writer;
  yajl_gen_t* const gen;
};

Stream_Channel::Stream_Channel(const Limits& limits, const Addresses& addresses,
                               std::weak_ptr<Wire> wire)
    : limits_(limits),
      addresses_(addresses),
      wire_(std::move(wire)),
      outbox_(limits.max_queue),
      forwards_(std::make_unique<JSON_RPC_Forward_Map>()) {}

Stream_Channel::~Stream_Channel() = default;

void Stream_Channel::framing(Framing framing) {
  framing_ = framing;
  outbox_.framing(framing);
}

int Stream_Channel::send(JSON_RPC_Object_var obj) {
  if (obj.get() == nullptr) return fail(EINVAL);
  return guarded([&] { return send_object(*obj); });
}

int Stream_Channel::send_object(const JSON_RPC_Object& obj) {
  if (obj.type == JSON_RPC_Object::TYPE_NOTIFY) {
    if (Current_Message::is(this, &obj)) return 0;
    JSON_RPC_Fan_Out* const fan_out = JSON_RPC_Fan_Out::current();
    if (fan_out != nullptr && fan_out->object() == &obj) {
      const int sent = guarded([&] { return send_prepared(*fan_out, obj); });
      // Nobody else hears of this failure: the subscriber is not to believe that it missed nothing.
      if (sent == -1 && errno == ENOMEM) close_soon(no_memory);
      return sent;
    }
  }
  std::string& text = scratch();
  if (serialise(obj, text)) {
    if (obj.type == JSON_RPC_Object::TYPE_REQUEST) return send_call(obj.id, text);
    return put(kind_of(obj), obj.id, text, code_of(obj));
  }
  VEXA_ERROR(
      "Refused to send a message with a value that cannot be written: too deep, or a number "
      "that is not finite.\n");
  if (is_response(obj)) answer_error(obj.id, JSON_RPC_INTERNAL_ERROR, nullptr);
  return fail(EINVAL);
}

int Stream_Channel::send_call(const json_spirit::Value& id, std::string_view text) {
  if (!calls_.note(id, Sent_Calls::OBJECT)) return fail(ENOTCONN);
  bool sent = false;
  const auto forget = vexa::on_exit([&] {
    Sent_Calls::Kind ignored;
    if (!sent) calls_.take(id, ignored);
  });
  sent = put(Outbox::CALL, id, text) == 0;
  return sent ? 0 : -1;
}

/// One of several receivers of a notification: the first of them serialises it for all.
int Stream_Channel::send_prepared(JSON_RPC_Fan_Out& fan_out, const JSON_RPC_Object& obj) {
  static const char ours = 0;
  if (fan_out.prepared == nullptr || fan_out.prepared_by != &ours) {
    std::shared_ptr<std::string> text = std::make_shared<std::string>();
    if (!serialise(obj, *text)) return fail(EINVAL);
    fan_out.prepared = std::move(text);
    fan_out.prepared_by = &ours;
  }
  const Shared_Text text = std::static_pointer_cast<const std::string>(fan_out.prepared);
  if (framing_ == Framing::HEADERS) return put(Outbox::NOTICE, obj.id, *text);
  bool wake_loop;
  const Outbox::Result result = outbox_.put(text, wake_loop);
  return conclude(Outbox::NOTICE, obj.id, result, wake_loop);
}

/// Puts a message's text, line feed included, in the line.
Outbox::Result Stream_Channel::put_text(Outbox::Kind kind, const json_spirit::Value& id,
                                        std::string_view text, int code, bool& wake_loop) {
  char head[48];
  std::size_t head_length = 0;
  if (framing_ == Framing::HEADERS) {
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    head_length = std::snprintf(head, sizeof head, "Content-Length: %zu\r\n\r\n", text.size());
  }
  Awaited_Call call;
  const Outbox::Result result =
      outbox_.put(kind, id, std::string_view(head, head_length), text, wake_loop, &call);
  if (result == Outbox::SENT && kind == Outbox::ANSWER) count_answer(call, code);
  return result;
}

void Stream_Channel::count_answer(const Awaited_Call& call, int code) {
  if (metrics_ == nullptr) return;
  metrics_->answered(call.method, code, std::chrono::steady_clock::now() - call.arrived);
}

int Stream_Channel::put(Outbox::Kind kind, const json_spirit::Value& id, std::string_view text,
                        int code) {
  bool wake_loop;
  const Outbox::Result result = put_text(kind, id, text, code, wake_loop);
  return conclude(kind, id, result, wake_loop);
}

int Stream_Channel::conclude(Outbox::Kind kind, const json_spirit::Value& id, Outbox::Result result,
                             bool wake_loop) {
  if (result == Outbox::SENT) {
    if (kind == Outbox::NOTICE) count(Metrics::NOTIFICATIONS_OUT);
    if (wake_loop) wake();
    return 0;
  }
  if (result == Outbox::OVERFLOW && kind == Outbox::NOTICE) {
    if (close_soon("it does not take its notifications")) count(Metrics::NOTIFICATION_OVERRUNS);
  } else if (result == Outbox::OVERFLOW && kind == Outbox::COMPLAINT) {
    close_soon("it sends bad messages and does not take the errors");
  }
  report_dropped(result, id);
  return -1;
}

/// Sets errno for a message that did not get into the line, and logs what nobody else would tell.
void Stream_Channel::report_dropped(Outbox::Result result, const json_spirit::Value& id) {
  switch (result) {
    case Outbox::NOT_AWAITED:
      count(Metrics::DROPPED_ANSWERS);
      VEXA_WARNING("Dropped an answer to id %C of channel %C, which awaits none.\n",
                   JSON_RPC_Id(id).c_str(), this->id().c_str());
      errno = EINVAL;
      return;
    case Outbox::OVERFLOW:
      errno = ENOBUFS;
      return;
    case Outbox::UNSUPPORTED:
      errno = EOPNOTSUPP;
      return;
    default:
      errno = ENOTCONN;
      return;
  }
}

void Stream_Channel::request_gone(const json_spirit::Value& id) noexcept {
  abandon_answer(id);
  if (!outbox_.gone(id) || answer_error(id, JSON_RPC_INTERNAL_ERROR, nullptr)) return;
  // Nobody else will answer.
  if (outbox_.awaits(id)) close_soon(no_memory);
}

bool Stream_Channel::answer_error(const json_spirit::Value& id, int code, const char* message) {
  bool answered = false;
  guarded([&] {
    std::string& text = scratch();
    if (!serialise(error_response(id, code, message), text)) return -1;
    bool wake_loop;
    const Outbox::Result result = put_text(Outbox::ANSWER, id, text, code, wake_loop);
    answered = result == Outbox::SENT;
    if (answered && wake_loop) wake();
    return 0;
  });
  return answered;
}

void Stream_Channel::complain(const json_spirit::Value& id, int code, const char* message) {
  const int sent = guarded([&] {
    std::string& text = scratch();
    if (!serialise(error_response(id, code, message), text)) return -1;
    const int result = put(Outbox::COMPLAINT, id, text);
    if (result == 0 && metrics_ != nullptr) metrics_->complained(code);
    return result;
  });
  if (sent == -1 && errno == ENOMEM) close_soon(no_memory);
}

int Stream_Channel::send(JSON_Generator& gen) {
  const auto* const call = dynamic_cast<const JSON_RPC_Request_Generator*>(&gen);
  return call == nullptr ? generate(gen) : send_generated_call(call->id(), gen);
}

int Stream_Channel::send_generated_call(const std::string& id, JSON_Generator& gen) {
  return guarded([&] {
    const json_spirit::Value key(id);
    const bool open = calls_.note(key, Sent_Calls::GENERATED);
    if (open && generate(gen) == 0) return 0;
    const int error = open ? errno : ENOTCONN;
    Sent_Calls::Kind ignored;
    if (open && !calls_.take(key, ignored)) return 0;  // answered before all of it was sent
    forget_waiter(key);
    return fail(error);
  });
}

int Stream_Channel::generate(JSON_Generator& gen) {
  return guarded([&] {
    Outgoing_Stream stream(*this);
    JSON_RPC_Writer writer;
    const bool written = writer.write(gen, stream);
    if (stream.failed()) return fail(stream.error());
    if (!written) return fail(EINVAL);
    return stream.finish();
  });
}

/// The message that this thread has open, or the end. Requires open_mutex_.
std::vector<std::unique_ptr<Stream_Channel::Open_Message>>::iterator Stream_Channel::own_message() {
  return std::find_if(open_.begin(), open_.end(),
                      [](const auto& open) { return open->thread == std::this_thread::get_id(); });
}

/// Its request has gone on the thread that began the answer: the handler threw, or forgot to end
/// it. The generator stays valid, in case somebody still writes.
void Stream_Channel::abandon_answer(const json_spirit::Value& id) {
  Open_Message* message = nullptr;  // other threads leave it alone
  {
    const std::lock_guard<std::mutex> guard(open_mutex_);
    const auto own = own_message();
    if (own != open_.end()) message = own->get();
  }
  if (message == nullptr || message->abandoned || !message->stream.answers(id)) return;
  message->abandoned = true;
  message->stream.abandon();
}

yajl_gen_t* Stream_Channel::send_begin() {
  yajl_gen_t* gen = nullptr;
  guarded([&] {
    if (outbox_.is_closed()) return fail(ENOTCONN);
    const std::lock_guard<std::mutex> guard(open_mutex_);
    const auto own = own_message();
    if (own != open_.end() && !(*own)->abandoned) return fail(EBUSY);
    if (own != open_.end()) open_.erase(own);
    open_.push_back(std::make_unique<Open_Message>(*this));
    gen = open_.back()->gen;
    if (gen != nullptr) return 0;
    open_.pop_back();
    return fail(ENOMEM);
  });
  return gen;
}

int Stream_Channel::send_end() {
  return guarded([&] {
    std::unique_ptr<Open_Message> message;
    {
      const std::lock_guard<std::mutex> guard(open_mutex_);
      const auto it = own_message();
      if (it == open_.end()) return fail(EINVAL);
      message = std::move(*it);
      open_.erase(it);
    }
    return message->stream.finish();
  });
}

JSON_RPC_Channel_ptr Stream_Channel::make_endpoint(const json_spirit::Value& id) {
  if (!outbox_.share(id)) {
    errno = outbox_.is_closed() ? ENOTCONN : EINVAL;
    return JSON_RPC_Channel_ptr();
  }
  Answer_Endpoint* endpoint = nullptr;
  guarded([&] {
    endpoint = new Answer_Endpoint(self_, id);
    return 0;
  });
  // From here on it answers for its share.
  if (endpoint == nullptr) request_gone(id);
  JSON_RPC_Channel_var owner;
  if (!vexa::adopt(owner, static_cast<JSON_RPC_Channel*>(endpoint)) || !keep_endpoint(owner)) {
    errno = ENOMEM;
    return JSON_RPC_Channel_ptr();
  }
  return owner;
}

bool Stream_Channel::keep_endpoint(const JSON_RPC_Channel_var& endpoint) {
  return guarded([&] {
           const std::lock_guard<std::mutex> guard(endpoints_mutex_);
           endpoints_.emplace(endpoint.get(), endpoint);
           return 0;
         }) == 0;
}

void Stream_Channel::drop_endpoint(const JSON_RPC_Channel& endpoint) {
  Endpoints::node_type dropped;  // destroyed after the unlock
  const std::lock_guard<std::mutex> guard(endpoints_mutex_);
  dropped = endpoints_.extract(&endpoint);
}

int Stream_Channel::put_forward_entry(JSON_RPC_Channel_ptr requester,
                                      const json_spirit::Value& id) {
  const JSON_RPC_Channel_var channel(requester);
  if (channel.null()) return fail(ENOTCONN);
  Stream_Channel* const stream = dynamic_cast<Stream_Channel*>(channel.get());
  const JSON_RPC_Channel_ptr entry = stream == nullptr ? requester : stream->make_endpoint(id);
  if (entry.null()) return -1;
  int forward_id;
  {
    const std::lock_guard<std::mutex> guard(forward_mutex_);
    if (forwards_ == nullptr) errno = ENOTCONN;
    forward_id = forwards_ == nullptr ? -1 : forwards_->put(id, entry);
  }
  if (forward_id == -1 && stream != nullptr) {
    const int error = errno;
    stream->drop_endpoint(*entry.unsafe_get());
    errno = error;
  }
  return forward_id;
}

int Stream_Channel::get_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester,
                                      json_spirit::Value& id) {
  if (take_forward_entry(forward_id, requester, id) == -1) return -1;
  const JSON_RPC_Channel_var channel(requester);
  const Answer_Endpoint* const endpoint = dynamic_cast<const Answer_Endpoint*>(channel.get());
  if (endpoint != nullptr) last_requester_ = endpoint->requester();
  return 0;
}

bool Stream_Channel::last_requester_waits(const std::weak_ptr<Wire>& source) {
  const JSON_RPC_Channel_var requester(last_requester_);
  if (requester.null()) return false;
  Stream_Channel& stream = static_cast<Stream_Channel&>(*requester);
  return !stream.outbox().may_grow(0, stream.limits().queue_mark(), source);
}

int Stream_Channel::take_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester,
                                       json_spirit::Value& id) {
  JSON_RPC_Forward_Map::data_type entry;
  {
    const std::lock_guard<std::mutex> guard(forward_mutex_);
    if (forwards_ == nullptr || forwards_->get(forward_id, entry) == -1) return -1;
  }
  id = std::move(entry.first);
  requester = entry.second;
  return 0;
}

/// False when it was answered meanwhile: this channel has closed.
bool Stream_Channel::drop_forward_entry(int forward_id) {
  JSON_RPC_Channel_ptr requester;
  json_spirit::Value id;
  if (take_forward_entry(forward_id, requester, id) == -1) return false;
  const JSON_RPC_Channel_var channel(requester);
  Answer_Endpoint* const endpoint = dynamic_cast<Answer_Endpoint*>(channel.get());
  if (endpoint != nullptr) endpoint->release();
  return true;
}

int Stream_Channel::forward(JSON_RPC_Channel_ptr requester, JSON_RPC_Object_var obj) {
  if (obj.get() == nullptr) return fail(EINVAL);
  if (requester.unsafe_get() == this) return fail(ELOOP);
  if (obj->type != JSON_RPC_Object::TYPE_REQUEST) return send(obj);
  const int forward_id = put_forward_entry(requester, obj->id);
  if (forward_id == -1) return -1;
  const int result = guarded([&] { return send_under(*obj, forward_id); });
  if (result == 0) count(Metrics::RELAYS_BEGUN);
  if (result == 0) return 0;
  const int error = errno;
  return drop_forward_entry(forward_id) ? fail(error) : 0;
}

/// Sends a request under another id, which it has only meanwhile.
int Stream_Channel::send_under(JSON_RPC_Object& obj, int forward_id) {
  json_spirit::Value id(forward_id);
  std::swap(obj.id, id);
  const auto put_back = vexa::on_exit([&] { std::swap(obj.id, id); });
  std::string& text = scratch();
  return serialise(obj, text) ? put(Outbox::CALL, obj.id, text) : fail(EINVAL);
}

int Stream_Channel::answered(const JSON_RPC_Object_var& response) {
  if (answer_forwarded(response)) {
    count(Metrics::RELAYS_ENDED);
    return 0;
  }
  Sent_Calls::Kind kind = Sent_Calls::OBJECT;
  calls_.take(response->id, kind);
  return call_answered(response, kind);
}

int Stream_Channel::call_answered(const JSON_RPC_Object_var& response, Sent_Calls::Kind kind) {
  if (kind == Sent_Calls::OBJECT) return JSON_RPC_Dispatcher::instance()->dispatch(self_, response);
  const json_spirit::Value id = response->id;
  const int result = JSON_RPC_Dispatcher::instance()->dispatch(self_, response);
  forget_waiter(id);
  return result;
}

bool Stream_Channel::fail_answer(const json_spirit::Value& id, bool answer) {
  const int told = guarded([&] {
    if (answer_forwarded(internal_error(id, JSON_RPC_Forward_Map::CLOSED))) {
      count(Metrics::RELAYS_FAILED);
      answer = true;
      return 0;
    }
    Sent_Calls::Kind kind = Sent_Calls::OBJECT;
    if (calls_.take(id, kind)) answer = true;
    return answer ? call_answered(internal_error(id, broken_answer), kind) : 0;
  });
  int forward_id;
  if (told == -1 && errno == ENOMEM && forward_id_of(id, forward_id)) {
    return drop_forward_entry(forward_id) || answer;  // the requester's channel sees to it
  }
  return answer;
}

/// An answer that is no stream: an error, or one whose result came before its id.
bool Stream_Channel::answer_forwarded(const JSON_RPC_Object_var& response) {
  int forward_id;
  JSON_RPC_Channel_ptr requester;
  json_spirit::Value id;
  if (!forward_id_of(response->id, forward_id) ||
      get_forward_entry(forward_id, requester, id) == -1) {
    return false;
  }
  response->id = std::move(id);
  const JSON_RPC_Channel_var channel(requester);
  if (channel.null()) {
    VEXA_ERROR("Abort forwarding JSON-RPC response, requester is gone.\n");
  } else {
    channel->send(response);
  }
  return true;
}

bool Stream_Channel::awaits_answers() const {
  if (!calls_.empty()) return true;
  const std::lock_guard<std::mutex> guard(forward_mutex_);
  return forwards_ != nullptr && !forwards_->empty();
}

/// An open message enters the line. An answer counts from then on, as a result.
Outbox::Result Stream_Channel::begin_open(std::string_view text, const json_spirit::Value* answered,
                                          std::uint64_t& stream, bool& wake_loop) {
  Awaited_Call call;
  const Outbox::Result result = outbox_.begin(text, answered, stream, wake_loop, &call);
  if (result == Outbox::SENT && answered != nullptr) count_answer(call, 0);
  return result;
}

/// An open message will not be completed.
void Stream_Channel::break_off(std::uint64_t stream, const json_spirit::Value& id,
                               const char* message) {
  const int replaced = guarded([&] {
    std::string& text = scratch();
    serialise(error_response(id, JSON_RPC_INTERNAL_ERROR, message), text);
    bool wake_loop;
    if (!outbox_.replace(stream, text, wake_loop)) return fail(EPIPE);
    if (wake_loop) wake();
    return 0;
  });
  if (replaced != 0) close_soon("an answer broke off of which it had been sent a part");
}

void Stream_Channel::fail_calls() {
  for (const auto& call : calls_.close()) {
    guarded([&] { return call_answered(internal_error(call.first, channel_closed), call.second); });
    // Also when there was no memory for the error.
    if (call.second == Sent_Calls::GENERATED) forget_waiter(call.first);
  }
}

namespace {

int copy_address(const ACE_INET_Addr& from, ACE_Addr& to) {
  if (to.get_type() != AF_INET && to.get_type() != AF_INET6) return fail(EAFNOSUPPORT);
  static_cast<ACE_INET_Addr&>(to) = from;
  return 0;
}

}  // namespace

int Stream_Channel::get_local_addr(ACE_Addr& addr) { return copy_address(addresses_.local, addr); }

int Stream_Channel::get_remote_addr(ACE_Addr& addr) {
  return copy_address(addresses_.remote, addr);
}

int Stream_Channel::get_original_addr(ACE_Addr& addr) const {
  return copy_address(addresses_.remote, addr);
}

HTTP_SOCK_State Stream_Channel::request_state() { return response_state(); }

HTTP_SOCK_State Stream_Channel::response_state() {
  return outbox_.is_closed() ? HTTP_SOCK_STATE_CLOSED : HTTP_SOCK_STATE_CONNECTED;
}

void Stream_Channel::wake() noexcept {
  const std::shared_ptr<Wire> wire = wire_.lock();
  try {
    if (wire != nullptr) wire->wake();
  } catch (...) {
    outbox_.unattended();  // the message stands in the line; the next one wakes
  }
}

bool Stream_Channel::close_soon(const char* reason) noexcept {
  const char* open = nullptr;
  if (!closing_.compare_exchange_strong(open, reason)) return false;
  const std::shared_ptr<Wire> wire = wire_.lock();
  try {
    if (wire != nullptr) wire->close_soon(reason);
  } catch (...) {
    VEXA_WARNING("There is no memory to have a channel closed: %C.\n", reason);
  }
  return true;
}

/// A forwarded request that will not be answered.
void Stream_Channel::fail_forwarded(int forward_id, const JSON_RPC_Forward_Map::data_type& entry) {
  const JSON_RPC_Channel_var requester(entry.second);
  Answer_Endpoint* const endpoint = dynamic_cast<Answer_Endpoint*>(requester.get());
  if (endpoint != nullptr) {
    endpoint->abandon();
  } else {
    JSON_RPC_Forward_Map::fail_back(forward_id, entry);
  }
}

void Stream_Channel::no_more_answers() {
  fail_calls();
  std::unique_ptr<JSON_RPC_Forward_Map> forwards;
  {
    const std::lock_guard<std::mutex> guard(forward_mutex_);
    forwards = std::move(forwards_);
  }
  if (forwards == nullptr) return;
  count(Metrics::RELAYS_FAILED, forwards->size());
  int forward_id;
  JSON_RPC_Forward_Map::data_type entry;
  while (forwards->take_first(forward_id, entry) == 0) fail_forwarded(forward_id, entry);
}

void Stream_Channel::closed() {
  outbox_.close();
  no_more_answers();
  Endpoints endpoints;  // destroyed after the unlock
  const std::lock_guard<std::mutex> guard(endpoints_mutex_);
  endpoints.swap(endpoints_);
}

}  // namespace transport
