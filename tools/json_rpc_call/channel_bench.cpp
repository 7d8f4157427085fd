#include "tools/json_rpc_call/channel_bench.h"

#include <cerrno>
#include <memory>
#include <string>

#include "json_rpc/json_rpc_session.h"
#include "tools/json_rpc_call/bench.h"
#include "tools/json_rpc_call/channel_failure.h"
#include "tools/json_rpc_call/outgoing_call.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/peer.h"

namespace {

class Channel_Caller final : public Bench_Caller {
public:
  Channel_Caller(Peer& peer, std::chrono::seconds timeout, const JSON_RPC_Object_var& request)
      : peer_(peer), timeout_(timeout), request_(request) {
    session_.reset(peer.channel());
  }

  bool call(JSON_RPC_Object_var& answer, std::string& error) override {
    if (request_.get() == nullptr || !session_.request(request_, answer, timeout_.count())) {
      error = reason_of_failure(peer_, errno, timeout_);
      return false;
    }
    return !closed_under_call(peer_, answer.get(), error);
  }

private:
  Peer& peer_;
  const std::chrono::seconds timeout_;
  const JSON_RPC_Object_var request_;  // goes out again and again, each time under a new id
  JSON_RPC_Session session_;
};

}  // namespace

int bench_over_channel(const Options& options, Peer& peer) {
  Outgoing_Call outgoing(options);
  json_spirit::Value params;
  std::string error;
  if (!outgoing.open(error) || !outgoing.read(params, error)) return complain(error);
  if (!peer.open(error)) return complain("cannot connect to " + options.url + ": " + error);
  return bench(options, [&] {
    JSON_RPC_Object_var request;
    JSON_RPC_Session::make_rpc_request(outgoing.method().c_str(), params, request);
    return std::make_unique<Channel_Caller>(peer, options.timeout, request);
  });
}
