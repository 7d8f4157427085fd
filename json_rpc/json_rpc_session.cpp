// The caller's thread registers the future under the request's id before it sends, so an answer
// finds it however fast it comes. The answer is set on the thread that read it, which holds a
// handle of its own meanwhile: whoever gives up first destroys nothing that the other one still
// uses.
#include "json_rpc/json_rpc_session.h"

#include <ace/OS_NS_sys_time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
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

/// A new request, owned by `out`; null with errno ENOMEM, `out` untouched.
JSON_RPC_Request* new_request(JSON_RPC_Object_var& out) {
  JSON_RPC_Request* const request = new (std::nothrow) JSON_RPC_Request;
  return vexa::adopt(out, request) ? request : nullptr;
}

/// A handler for one answer, owned by `out`; null with errno ENOMEM.
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

bool answered(int get_result) {
  if (get_result == 0) return true;
  VEXA_ERROR("Failed to get response, errno=%d, %m.\n", errno);
  return false;
}

}  // namespace

JSON_RPC_Session::JSON_RPC_Session() = default;
JSON_RPC_Session::JSON_RPC_Session(const JSON_RPC_Channel_ptr& channel) : channel_(channel) {}

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
    return answered(future->get_within(result, ACE_Time_Value(timeout)));
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
    // Kept: counted from the second that has begun.
    const ACE_Time_Value limit(timeout, -static_cast<suseconds_t>(ACE_OS::gettimeofday().usec()));
    if (!answered(timeout < 0 ? future->get(result, nullptr) : future->get_within(result, limit))) {
      return false;
    }
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
    JSON_RPC_Object_var made;
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
  JSON_RPC_Object_var made;
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
  const bool answer = message != nullptr && (message->type == JSON_RPC_Object::TYPE_RESPONSE ||
                                             message->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR);
  set(answer ? obj : JSON_RPC_Object_var());
  return answer ? 0 : -1;
}

void JSON_RPC_Future_Handler::set(const JSON_RPC_Object_var& obj) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (set_) return;
  object_ = obj;
  set_ = true;
  came_.notify_all();
}

int JSON_RPC_Future_Handler::get(JSON_RPC_Object_var& result, ACE_Time_Value* abs_deadline) {
  if (abs_deadline != nullptr) {
    return get_within(result, *abs_deadline - ACE_OS::gettimeofday());
  }
  {
    std::unique_lock<std::mutex> guard(mutex_);
    came_.wait(guard, [this] { return set_; });
  }
  result = object_;
  return 0;
}

int JSON_RPC_Future_Handler::get_within(JSON_RPC_Object_var& result, const ACE_Time_Value& limit) {
  // What the clock of waits can bear.
  constexpr std::chrono::seconds most(std::chrono::hours(100 * 365 * 24));
  const auto time = std::chrono::seconds(std::clamp<time_t>(limit.sec(), -1, most.count())) +
                    std::chrono::microseconds(limit.usec());
  {
    std::unique_lock<std::mutex> guard(mutex_);
    if (!came_.wait_for(guard, std::clamp<std::chrono::microseconds>(time, time.zero(), most),
                        [this] { return set_; })) {
      errno = ETIME;
      return -1;
    }
  }
  result = object_;
  return 0;
}
