// The caller's thread registers the future under the request's id before it sends, so an answer
// finds it however fast it comes. The answer is set on the thread that read it, which holds a
// handle of its own meanwhile: whoever gives up first destroys nothing that the other one still
// uses.
#include "json_rpc/json_rpc_session.h"

#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_time.h>

#include <cerrno>
#include <limits>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_response_map.h"
#include "vexa/adopt.h"
#include "vexa/get_env_r.h"
#include "vexa/log.h"
#include "vexa/natoi.h"
#include "vexa/on_exit.h"

namespace {

// Copied where a null handle is wanted: a new one would allocate. Never destroyed, since answers
// may come until the process is gone.
const JSON_RPC_Object_var& no_object = *new JSON_RPC_Object_var;

/// A new request, owned by `out`; null with errno ENOMEM, `out` untouched.
JSON_RPC_Request* new_request(JSON_RPC_Object_var& out) {
  JSON_RPC_Request* const request = new (std::nothrow) JSON_RPC_Request;
  return vexa::adopt(out, request) ? request : nullptr;
}

/// A handler for one answer, owned by `out`; null with errno ENOMEM. May throw std::bad_alloc.
JSON_RPC_Future_Handler* new_future(JSON_RPC_Handler_var& out) {
  JSON_RPC_Future_Handler* const future = new (std::nothrow) JSON_RPC_Future_Handler;
  return vexa::adopt(out, future) ? future : nullptr;
}

bool wait_for(const json_spirit::Value& id, const JSON_RPC_Handler_var& handler) {
  if (JSON_RPC_Response_Map::instance()->insert(id, handler) == 0) return true;
  VEXA_ERROR("Failed to insert response handler to map.\n");
  return false;
}

bool sent(int send_result) {
  if (send_result != -1) return true;
  VEXA_ERROR("Failed to send request to channel, errno=%d, %m.\n", errno);
  return false;
}

bool answered(JSON_RPC_Future_Handler& future, JSON_RPC_Object_var& result,
              ACE_Time_Value* deadline) {
  if (future.get(result, deadline) == 0) return true;
  VEXA_ERROR("Failed to get response, errno=%d, %m.\n", errno);
  return false;
}

/// The sum would overflow into the past.
time_t add_or_max(time_t now, time_t seconds) {
  const time_t max = std::numeric_limits<time_t>::max();
  return seconds > max - now ? max : now + seconds;
}

}  // namespace

JSON_RPC_Session::JSON_RPC_Session() : channel_(JSON_RPC_Channel::none()) {}
JSON_RPC_Session::JSON_RPC_Session(const JSON_RPC_Channel_ptr& channel)
    : channel_(JSON_RPC_Channel::strong(channel)) {}

void JSON_RPC_Session::reset(const JSON_RPC_Channel_var& channel) { channel_ = channel; }

bool JSON_RPC_Session::request(const JSON_RPC_Object_var& req, JSON_RPC_Object_var& result,
                               time_t timeout) {
  VEXA_CHECK(channel_.get() != nullptr, "channel_.get() is NULL", false);
  VEXA_CHECK(req.get() != nullptr, "req is NULL", false);
  if (timeout == 0) get_timeout_env(timeout);
  try {
    JSON_RPC_Handler_var handler;
    JSON_RPC_Future_Handler* const future = new_future(handler);
    if (future == nullptr) return false;
    JSON_RPC_Id_Generator::gen(*req);
    const json_spirit::Value id(req->id);  // `req` and `result` may be one handle
    if (!wait_for(id, handler)) return false;
    const auto forget = vexa::on_exit([&id] { JSON_RPC_Response_Map::instance()->remove(id); });
    if (!sent(channel_->send(req))) return false;
    if (timeout > MAX_WAIT_TIME || timeout < 0) timeout = MAX_WAIT_TIME;
    ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(timeout);
    return answered(*future, result, &deadline);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}

bool JSON_RPC_Session::request(const char* method, JSON_Generator* params,
                               JSON_RPC_Object_var& result, time_t timeout) {
  VEXA_CHECK(channel_.get() != nullptr, "channel_.get() is NULL", false);
  VEXA_CHECK(method != nullptr && *method != '\0', "method is NULL or \"\"", false);
  if (timeout == 0) get_timeout_env(timeout);
  try {
    JSON_RPC_Handler_var handler;
    JSON_RPC_Future_Handler* const future = new_future(handler);
    if (future == nullptr) return false;
    JSON_RPC_Request_Generator generator(method, params);
    const json_spirit::Value id(generator.id());
    if (!wait_for(id, handler)) return false;
    // Kept: whatever fails from here on leaves the id where it is.
    if (!sent(channel_->send(generator))) return false;
    ACE_Time_Value deadline(add_or_max(ACE_OS::time(nullptr), timeout));
    if (!answered(*future, result, timeout < 0 ? nullptr : &deadline)) return false;
    JSON_RPC_Response_Map::instance()->remove(id);
    return true;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}

bool JSON_RPC_Session::notify(const JSON_RPC_Object_var& obj) {
  VEXA_CHECK(channel_.get() != nullptr, "channel_.get() is NULL", false);
  if (channel_->send(obj) != -1) return true;
  VEXA_ERROR("Failed to send notify to channel, errno=%d, %m.\n", errno);
  return false;
}

bool JSON_RPC_Session::make_rpc_request(const char* method, const json_spirit::Value& params,
                                        JSON_RPC_Object_var& out) {
  try {
    JSON_RPC_Object_var made(no_object);
    JSON_RPC_Request* const request = new_request(made);
    if (request == nullptr) return false;
    if (method != nullptr) request->method = method;
    request->params = params;
    out = made;
    return true;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}

JSON_RPC_Object_var JSON_RPC_Session::make_rpc_request(std::string method,
                                                       json_spirit::Value&& params) {
  json_spirit::Value* place = nullptr;
  JSON_RPC_Object_var made(make_rpc_request(std::move(method), &place));
  if (place != nullptr) *place = std::move(params);
  return made;
}

JSON_RPC_Object_var JSON_RPC_Session::make_rpc_request(std::string method,
                                                       json_spirit::Value** params_out) {
  JSON_RPC_Object_var made(no_object);
  JSON_RPC_Request* const request = new_request(made);
  if (request == nullptr) return made;
  request->method = std::move(method);
  if (params_out != nullptr) *params_out = &request->params;
  return made;
}

void JSON_RPC_Session::get_timeout_env(time_t& timeout) {
  const std::string text = get_env_r("JSON_RPC_REQUEST_TIMEOUT");
  timeout = text.empty() ? DEFAULT_REQ_TIMEOUT : natoi<long>(text.c_str());
}

JSON_RPC_Future_Handler::JSON_RPC_Future_Handler() = default;
JSON_RPC_Future_Handler::~JSON_RPC_Future_Handler() = default;

int JSON_RPC_Future_Handler::handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var obj) {
  const JSON_RPC_Object* const message = obj.get();
  if (message != nullptr && (message->type == JSON_RPC_Object::TYPE_RESPONSE ||
                             message->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR)) {
    return future_.set(obj) == -1 ? -1 : 0;
  }
  future_.set(no_object);
  return -1;
}

int JSON_RPC_Future_Handler::get(JSON_RPC_Object_var& result, ACE_Time_Value* abs_deadline) {
  return future_.get(result, abs_deadline) == 0 ? 0 : -1;
}
