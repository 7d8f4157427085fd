#include "json_rpc/json_rpc_utils.h"

#include <cerrno>
#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "json_rpc/global_json_rpc_channel.h"
#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_session.h"
#include "vexa/exponential_backoff_iterator.h"
#include "vexa/log.h"

namespace {

constexpr int agent_channel_type = 1;

bool is_named(const char* text) { return text != nullptr && *text != '\0'; }

/// request() until it succeeds or a limit is reached.
bool request_with_retries(JSON_RPC_Session& session, const JSON_RPC_Object_var& req,
                          JSON_RPC_Object_var& res, const char* method, int retry_seconds,
                          int retries) {
  int attempt = 1;
  Exponential_Backoff_Iterator it(1, Exponential_Backoff_Iterator::unlimited, 60, true);
  const Exponential_Backoff_Iterator end;
  while (!session.request(req, res, 0)) {
    const bool over = (retries != -1 && attempt > retries) ||
                      (retry_seconds != -1 && it.cumulation() >= retry_seconds) || it == end;
    if (over) {
      VEXA_ERROR("JSON-RPC '%s' failed after %d retries.\n", method, retries);
      return false;
    }
    const unsigned delay = *it;
    VEXA_INFO("Retry(%d) %N:%l at %u second(s) later.\n", attempt, delay);
    std::this_thread::sleep_for(std::chrono::seconds(delay));  // a signal does not cut it short
    ++attempt;
    ++it;
  }
  return true;
}

/// Takes the result out of an answer.
bool take_result(JSON_RPC_Object* answer, const char* method, json_spirit::Value* response,
                 json_spirit::Value_type expected) {
  const int type = answer == nullptr ? JSON_RPC_Object::TYPE_NONE : answer->type;
  if (type == JSON_RPC_Object::TYPE_RESPONSE_ERROR) {
    const auto& error = static_cast<const JSON_RPC_Response_Error&>(*answer);
    VEXA_ERROR("JSON-RPC '%s' response error, code: %d, msg: %s.\n", method,
               static_cast<int>(error.code), error.message.c_str());
    return false;
  }
  if (response == nullptr && answer != nullptr) return true;
  if (type != JSON_RPC_Object::TYPE_RESPONSE) {
    VEXA_ERROR("The response type '%d' of JSON-RPC '%s' is invalid", type, method);
    return false;
  }
  json_spirit::Value& result = static_cast<JSON_RPC_Response&>(*answer).result;
  if (expected != json_spirit::null_type && expected != result.type()) {
    VEXA_ERROR("JSON-RPC '%s' response expected type %d, got %d\n", method,
               static_cast<int>(expected), static_cast<int>(result.type()));
    return false;
  }
  *response = std::move(result);
  return true;
}

}  // namespace

bool send_rpc(const JSON_RPC_Channel_var& chn, const char* method, const json_spirit::Value& params,
              json_spirit::Value* response, json_spirit::Value_type expected_response_type,
              int retry_seconds, int retries) {
  VEXA_CHECK(chn.get() != nullptr, "chn.get() is NULL", false);
  VEXA_CHECK(is_named(method), "method is NULL or \"\"", false);
  try {
    JSON_RPC_Object_var req;
    if (!JSON_RPC_Session::make_rpc_request(method, params, req)) {
      VEXA_ERROR("Failed to make rpc request for '%s'.\n", method);
      return false;
    }
    JSON_RPC_Session session;
    session.reset(chn);
    JSON_RPC_Object_var res;
    return request_with_retries(session, req, res, method, retry_seconds, retries) &&
           take_result(res.get(), method, response, expected_response_type);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}

bool global_json_rpc(const char* method, const json_spirit::Value& params, int retry_seconds,
                     json_spirit::Value* response, json_spirit::Value_type expected_response_type,
                     int retries) {
  VEXA_CHECK(is_named(method), "method is NULL or \"\"", false);
  return send_rpc(Global_JSON_RPC_Channel::instance(), method, params, response,
                  expected_response_type, retry_seconds, retries);
}

bool send_rpc_to_agent(const char* agent_uuid, const char* method, const json_spirit::Value& params,
                       json_spirit::Value* response, json_spirit::Value_type expected_response_type,
                       int retry_seconds, int retries) {
  VEXA_CHECK(is_named(agent_uuid), "agent_uuid is NULL or \"\"", false);
  VEXA_CHECK(is_named(method), "method is NULL or \"\"", false);
  try {
    const JSON_RPC_Channel_ptr channel =
        JSON_RPC_Channel_Map::instance()->find(agent_channel_type, agent_uuid);
    return send_rpc(JSON_RPC_Channel_var(channel), method, params, response, expected_response_type,
                    retry_seconds, retries);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}
