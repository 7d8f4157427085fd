#pragma once

#include <mutex>
#include <thread>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "transport/stream_channel.h"

namespace transport {

/// The channel of a link, which outlives its connections: everything goes over the channel of the
/// present connection, or gives -1 with errno ENOTCONN while there is none. Requests of the peer
/// are dispatched with the connection's own channel instead, so an answer that comes after a
/// reconnect cannot be taken for one to a request of the new connection. Any thread.
class Link_Channel final : public JSON_RPC_Channel {
public:
  explicit Link_Channel(const std::string& url);

  /// The link is up, over this connection's channel; or down, with an empty handle.
  void attach(const JSON_RPC_Channel_ptr& channel);

  int send(JSON_RPC_Object_var obj) override;
  int send(JSON_Generator& gen) override;
  /// Goes to the connection that send_begin() found, though it may have gone down since.
  yajl_gen_t* send_begin() override;
  int send_end() override;

  int put_forward_entry(JSON_RPC_Channel_ptr requester, const json_spirit::Value& id) override;
  int get_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester,
                        json_spirit::Value& id) override;
  int forward(JSON_RPC_Channel_ptr requester, JSON_RPC_Object_var obj) override;

  int get_local_addr(ACE_Addr& addr) override;
  int get_remote_addr(ACE_Addr& addr) override;
  int get_original_addr(ACE_Addr& addr) const override;
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return response_state(); }
  HTTP_SOCK_State response_state() override;

private:
  /// A message that a thread has begun: it keeps its connection's channel.
  struct Begun {
    std::thread::id thread;
    JSON_RPC_Channel_var channel;
  };

  JSON_RPC_Channel_var current() const;

  mutable std::mutex mutex_;      // a leaf
  JSON_RPC_Channel_ptr current_;  // guarded by mutex_
  std::vector<Begun> begun_;      // guarded by mutex_; one a thread at most
};

}  // namespace transport
