#include "transport/link_channel.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_response_map.h"

namespace transport {

namespace {

int not_connected() {
  errno = ENOTCONN;
  return -1;
}

}  // namespace

Link_Channel::Link_Channel(const std::string& url) {
  type(Stream_Channel::STREAM);
  id(url);
}

void Link_Channel::attach(const JSON_RPC_Channel_ptr& channel) {
  const std::lock_guard<std::mutex> guard(mutex_);
  current_ = channel;
}

JSON_RPC_Channel_var Link_Channel::current() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return current_.strong();
}

int Link_Channel::send(JSON_RPC_Object_var obj) {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->send(obj);
}

int Link_Channel::send(JSON_Generator& gen) {
  const JSON_RPC_Channel_var channel = current();
  if (!channel.null()) return channel->send(gen);
  // Its caller leaves the id in the response map, where nobody would find it again.
  if (const auto* const call = dynamic_cast<const JSON_RPC_Request_Generator*>(&gen)) {
    JSON_RPC_Response_Map::instance()->remove(call->id());
  }
  return not_connected();
}

yajl_gen_t* Link_Channel::send_begin() {
  const JSON_RPC_Channel_var channel = current();
  yajl_gen_t* const gen = channel.null() ? nullptr : channel->send_begin();
  if (gen == nullptr) {
    if (channel.null()) errno = ENOTCONN;
    return nullptr;
  }
  try {
    const std::lock_guard<std::mutex> guard(mutex_);
    begun_.push_back({std::this_thread::get_id(), channel});
    return gen;
  } catch (const std::bad_alloc&) {
    channel->send_end();
    errno = ENOMEM;
    return nullptr;
  }
}

int Link_Channel::send_end() {
  JSON_RPC_Channel_var channel;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto it = std::find_if(begun_.begin(), begun_.end(), [](const Begun& begun) {
      return begun.thread == std::this_thread::get_id();
    });
    if (it != begun_.end()) {
      channel = it->channel;
      begun_.erase(it);
    }
  }
  if (!channel.null()) return channel->send_end();
  errno = EINVAL;
  return -1;
}

int Link_Channel::put_forward_entry(JSON_RPC_Channel_ptr requester, const json_spirit::Value& id) {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->put_forward_entry(requester, id);
}

int Link_Channel::get_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester,
                                    json_spirit::Value& id) {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->get_forward_entry(forward_id, requester, id);
}

int Link_Channel::forward(JSON_RPC_Channel_ptr requester, JSON_RPC_Object_var obj) {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->forward(requester, obj);
}

int Link_Channel::get_local_addr(ACE_Addr& addr) {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->get_local_addr(addr);
}

int Link_Channel::get_remote_addr(ACE_Addr& addr) {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->get_remote_addr(addr);
}

int Link_Channel::get_original_addr(ACE_Addr& addr) const {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? not_connected() : channel->get_original_addr(addr);
}

HTTP_SOCK_State Link_Channel::response_state() {
  const JSON_RPC_Channel_var channel = current();
  return channel.null() ? HTTP_SOCK_STATE_CLOSED : channel->response_state();
}

}  // namespace transport
