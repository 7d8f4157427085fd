// "agent.call": {"agent": ID, "method": M, "params": P} forwards M and P to the agent that has
// registered under ID. Its answer comes back under the caller's id, streamed when it is large. A
// notification is forwarded as one.

#include <cerrno>
#include <string>
#include <utility>

#include "json_rpc/json_rpc_channel_map.h"
#include "plugins/plugin.h"
#include "vexa/log.h"

namespace {

constexpr int agent_channel_type = 1;
constexpr int server_busy = -32000;

/// A text member that is not empty, or "".
std::string text_member(const json_spirit::Object& params, const char* name) {
  const auto it = params.find(name);
  return it != params.end() && it->second.type() == json_spirit::str_type ? it->second.get_str()
                                                                          : std::string();
}

class Agent_Call_Handler final : public JSON_RPC_Handler {
public:
  int handle_object(JSON_RPC_Channel_ptr requester, JSON_RPC_Object_var object) override {
    JSON_RPC_Request& request = static_cast<JSON_RPC_Request&>(*object);
    std::string agent;
    JSON_RPC_Object_var call;
    if (!read_call(request, agent, call)) {
      return fail(requester, request, JSON_RPC_INVALID_PARAMS,
                  "Invalid params, {\"agent\": text, \"method\": text, \"params\": any} expected.");
    }
    const JSON_RPC_Channel_var channel(
        JSON_RPC_Channel_Map::instance()->find(agent_channel_type, agent));
    if (channel.null()) {
      return fail(requester, request, JSON_RPC_INVALID_PARAMS,
                  "Invalid params, agent '" + agent + "' is not connected.");
    }
    if (JSON_RPC_Channel::same(requester, channel)) {
      return fail(requester, request, JSON_RPC_INVALID_PARAMS,
                  "Invalid params, agent '" + agent + "' is the caller itself.");
    }
    if (channel->forward(requester, call) == 0) return 0;
    if (errno == ENOBUFS) {
      return fail(requester, request, server_busy, "Agent '" + agent + "' is busy.");
    }
    return fail(requester, request, JSON_RPC_INTERNAL_ERROR,
                "Internal error, agent '" + agent + "' could not be reached.");
  }

private:
  /// Takes the agent's name and what to call there out of the params.
  static bool read_call(JSON_RPC_Request& request, std::string& agent, JSON_RPC_Object_var& out) {
    if (request.params.type() != json_spirit::obj_type) return false;
    json_spirit::Object& params = request.params.get_obj();
    agent = text_member(params, "agent");
    std::string method = text_member(params, "method");
    if (agent.empty() || method.empty()) return false;
    JSON_RPC_Request* const call = new (std::nothrow) JSON_RPC_Request;
    if (!vexa::adopt(out, static_cast<JSON_RPC_Object*>(call))) return false;
    call->type = request.type;
    call->id = request.id;
    call->method = std::move(method);
    const auto inner = params.find("params");
    if (inner != params.end()) call->params = std::move(inner->second);
    return true;
  }

  /// Answers a request; of a notification that went nowhere a line is logged.
  static int fail(const JSON_RPC_Channel_ptr& weak, const JSON_RPC_Request& request, int code,
                  const std::string& message) {
    if (request.type != JSON_RPC_Object::TYPE_REQUEST) {
      VEXA_WARNING("A notification for an agent is dropped: %C\n", message.c_str());
      return 0;
    }
    const JSON_RPC_Channel_var requester(weak);
    if (requester.null()) return -1;
    return requester->send_error(code, request.id, message.c_str(), json_spirit::Value::null);
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_agent_call(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Agent_Call_Handler>(gobbler);
}
