#include "host/agent_registration.h"

#include <ace/INET_Addr.h>
#include <openssl/crypto.h>

#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_session.h"
#include "transport/stream_channel.h"
#include "vexa/adopt.h"
#include "vexa/log.h"

namespace {

using transport::Stream_Channel;

const char* const method_name = "channel.register";

/// A member of the params; null when there is none.
const json_spirit::Value* member(const json_spirit::Value& params, const char* name) {
  if (params.type() != json_spirit::obj_type) return nullptr;
  const auto it = params.get_obj().find(name);
  return it == params.get_obj().end() ? nullptr : &it->second;
}

std::string text_member(const json_spirit::Value& params, const char* name) {
  const json_spirit::Value* const value = member(params, name);
  return value != nullptr && value->type() == json_spirit::str_type ? value->get_str()
                                                                    : std::string();
}

/// Takes the same time wherever the two differ; only the length of the secret shows.
bool same_secret(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

bool is_local(JSON_RPC_Channel& channel) {
  ACE_INET_Addr peer;
  return channel.get_remote_addr(peer) == 0 && peer.is_loopback();
}

class Register_Handler final : public JSON_RPC_Handler {
public:
  explicit Register_Handler(const std::string& token) : token_(token) {}

  int handle_object(JSON_RPC_Channel_ptr weak, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var channel(weak);
    if (channel.null() || object->type != JSON_RPC_Object::TYPE_REQUEST) return 0;
    const JSON_RPC_Request& request = static_cast<const JSON_RPC_Request&>(*object);
    const json_spirit::Value* const type = member(request.params, "type");
    const std::string id = text_member(request.params, "id");
    if (type == nullptr || *type != json_spirit::Value(int{Stream_Channel::AGENT}) || id.empty()) {
      return refuse(*channel, request, "{\"type\": 1, \"id\": text} is expected");
    }
    if (!trusted(*channel, request.params)) {
      VEXA_WARNING("Channel %C may not register as agent '%C'.\n", channel->id().c_str(),
                   id.c_str());
      return refuse(*channel, request,
                    token_.empty() ? "without a token agents register from this machine only"
                                   : "the token is wrong");
    }
    if (!enter(channel, id)) return refuse(*channel, request, "an agent with this id is connected");
    return answer_true(*channel, request);
  }

private:
  static int refuse(JSON_RPC_Channel& channel, const JSON_RPC_Request& request,
                    const char* reason) {
    return channel.send_error(JSON_RPC_INVALID_PARAMS, request.id, nullptr, reason);
  }

  static int answer_true(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
    JSON_RPC_Response* const response = new (std::nothrow) JSON_RPC_Response(&request);
    JSON_RPC_Object_var handle;
    if (!vexa::adopt(handle, static_cast<JSON_RPC_Object*>(response))) return -1;
    response->result = true;
    return channel.send(handle);
  }

  bool trusted(JSON_RPC_Channel& channel, const json_spirit::Value& params) const {
    return token_.empty() ? is_local(channel) : same_secret(text_member(params, "token"), token_);
  }

  /// Moves the channel to type 1 and that id. False when another live channel has the id.
  bool enter(const JSON_RPC_Channel_var& channel, const std::string& id) {
    JSON_RPC_Channel_Map& map = *JSON_RPC_Channel_Map::instance();
    const std::lock_guard<std::mutex> guard(mutex_);
    const JSON_RPC_Channel_var holder(map.find(Stream_Channel::AGENT, id));
    if (!holder.null()) return holder.get() == channel.get();
    map.remove(channel);
    channel->type(Stream_Channel::AGENT);
    channel->id(id);
    return map.insert(channel) == 0;
  }

  const std::string token_;
  std::mutex mutex_;  // around looking for an id and taking it; before the channel map's lock
};

}  // namespace

int serve_agent_registration(const std::string& token) {
  std::unique_ptr<JSON_RPC_Handler> handler = std::make_unique<Register_Handler>(token);
  const int result = JSON_RPC_Request_Map::instance()->insert(
      method_name, std::string(), handler.get(),
      [](void* object) { delete static_cast<JSON_RPC_Handler*>(object); });
  if (result == 0) static_cast<void>(handler.release());  // the map owns it
  return result;
}

std::function<JSON_RPC_Object_var()> agent_greeting(const std::string& id,
                                                    const std::string& token) {
  return [id, token] {
    json_spirit::Object params;
    params["type"] = int{Stream_Channel::AGENT};
    params["id"] = id;
    if (!token.empty()) params["token"] = token;
    return JSON_RPC_Session::make_rpc_request(method_name, std::move(params));
  };
}
