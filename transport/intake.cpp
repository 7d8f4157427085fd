#include "transport/intake.h"

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_request_map.h"
#include "transport/current_message.h"
#include "transport/loop.h"
#include "transport/rpc_errors.h"
#include "vexa/log.h"

namespace transport {

namespace {

constexpr std::chrono::seconds slow_handler{1};

bool starts_with(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

bool is_call(const JSON_RPC_Object& object) {
  return object.type == JSON_RPC_Object::TYPE_REQUEST ||
         object.type == JSON_RPC_Object::TYPE_NOTIFY;
}

const std::string& method_of(const JSON_RPC_Object& call) {
  return static_cast<const JSON_RPC_Request&>(call).method;
}

/// Whether a notification tells of this process itself: a peer must not make that up for others.
bool is_made_up(const JSON_RPC_Object& notification) {
  const std::string& method = method_of(notification);
  return (starts_with(method, "channel.") || starts_with(method, "rpc.")) &&
         JSON_RPC_Request_Map::instance()->find(method) == nullptr;
}

}  // namespace

Intake::Intake(Stream_Channel& channel, const Server_State& state, std::weak_ptr<Answer_Debt> debt,
               std::shared_ptr<const Method_Filter> filter)
    : channel_(channel), state_(state), debt_(std::move(debt)), filter_(std::move(filter)) {}

/// While this end awaits answers of the peer, requests that do not fit are refused rather than left
/// unread: so many of them, and until as much again was taken by notifications, which cannot be.
bool Intake::overloaded() const {
  const Limits& limits = state_.limits;
  return parked_full() && (refused_ >= limits.max_pending || parked_bytes_ / 2 > limits.max_queue ||
                           !channel_.awaits_answers());
}

bool Intake::parked_full() const { return parked_bytes_ > state_.limits.max_queue; }

/// Whether the channel owes so much that no further request is begun. What is parked awaits an
/// answer too, but is not in work.
bool Intake::busy() const {
  const Limits& limits = state_.limits;
  return channel_.outbox().overloaded(limits.queue_mark(), limits.max_pending + parked_requests_);
}

void Intake::message(const JSON_RPC_Object_var& object, std::size_t bytes) {
  if (object->type == JSON_RPC_Object::TYPE_NOTIFY) {
    channel_.count(Metrics::NOTIFICATIONS_IN);
    if (is_made_up(*object) || !passes(*object)) return;
    if (parked()) return park(object, bytes);
  } else if (object->type == JSON_RPC_Object::TYPE_REQUEST) {
    const bool wait = parked() || busy();
    await(*object);
    static_cast<Owed_Request&>(*object).owe(debt_);
    if (wait && parked_full()) return refuse(object->id);
    if (wait) return park(object, bytes);
  }
  dispatch(object);
}

void Intake::await(const JSON_RPC_Object& request) {
  Awaited_Call call;
  if (Metrics* const metrics = channel_.metrics()) {
    call.method = metrics->method(method_of(request));
    call.arrived = channel_.arrived();
    metrics->call(call.method);
  }
  channel_.outbox().await(request.id, call);
}

bool Intake::passes(const JSON_RPC_Object& call) const {
  return filter_ == nullptr || filter_->passes(method_of(call));
}

void Intake::refuse(const json_spirit::Value& id) {
  ++refused_;
  answer_error(id, server_busy, busy_text);
}

void Intake::park(const JSON_RPC_Object_var& object, std::size_t bytes) {
  parked_.push_back({object, bytes + sizeof(Owed_Request)});
  parked_bytes_ += parked_.back().bytes;
  if (object->type == JSON_RPC_Object::TYPE_REQUEST) ++parked_requests_;
}

void Intake::dispatch_parked() {
  while (ready()) {
    const Parked next = std::move(parked_.front());
    parked_.pop_front();
    parked_bytes_ -= next.bytes;
    if (next.object->type == JSON_RPC_Object::TYPE_REQUEST) --parked_requests_;
    dispatch(next.object);
  }
  if (!parked_full()) refused_ = 0;
}

void Intake::clear() {
  parked_.clear();
  parked_bytes_ = parked_requests_ = 0;
}

void Intake::answer_error(const json_spirit::Value& id, int code, const char* message) {
  if (channel_.answer_error(id, code, message)) refusal_ = code;
}

void Intake::dispatch(const JSON_RPC_Object_var& object) {
  const bool request = object->type == JSON_RPC_Object::TYPE_REQUEST;
  const bool call = is_call(*object);
  refusal_ = 0;
  if (request && state_.stopping) return answer_error(object->id, server_stopping, stopping_text);
  if (request && !passes(*object)) {
    return answer_error(object->id, JSON_RPC_METHOD_NOT_FOUND, nullptr);
  }
  const Current_Message current(&channel_, object.get());
  char name[64] = "an answer";  // beside the message, which a handler may take apart
  if (call) name[method_of(*object).copy(name, sizeof name - 1)] = '\0';
  const Loop_Time begin = Loop::now();
  errno = 0;
  const int result = call ? JSON_RPC_Dispatcher::instance()->dispatch(channel_.self(), object)
                          : channel_.answered(object);
  const int error = errno;
  const Loop_Time end = Loop::now();
  if (end - begin > slow_handler) {
    VEXA_WARNING("The handler of '%C' held its loop for %d ms.\n", name,
                 static_cast<int>((end - begin) / std::chrono::milliseconds(1)));
  }
  if (result == -1 && !call) channel_.count(Metrics::LATE_ANSWERS);
  if (result != -1 || !request) return;
  if (error == EWOULDBLOCK) {
    answer_error(object->id, server_busy, busy_text);
  } else {
    answer_error(object->id, JSON_RPC_INTERNAL_ERROR, nullptr);
  }
}

}  // namespace transport
