// The command-line client: calls a method of a JSON-RPC server, or notifies,
// subscribes, measures; and sends other requests with JSON over HTTP.

#include <string>

#include "json_rpc/json_rpc_service.h"
#include "tools/json_rpc_call/channel_bench.h"
#include "tools/json_rpc_call/channel_call.h"
#include "tools/json_rpc_call/http_bench.h"
#include "tools/json_rpc_call/http_call.h"
#include "tools/json_rpc_call/http_client.h"
#include "tools/json_rpc_call/log_lines.h"
#include "tools/json_rpc_call/options.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/peer.h"
#include "tools/json_rpc_call/rest_call.h"
#include "tools/json_rpc_call/subscription.h"
#include "vexa/standard_descriptors.h"

namespace {

int run_over_channel(const Options& options, Peer& peer) {
  switch (options.task) {
    case Options::SUBSCRIBE:
      return subscribe(options, peer);
    case Options::NOTIFY:
      return notify_over_channel(options, peer);
    default:
      return options.bench == 0 ? call_over_channel(options, peer)
                                : bench_over_channel(options, peer);
  }
}

int run_over_http(const Options& options, Http_Client& client) {
  std::string error;
  if (!client.open(options, error)) return complain(error);
  switch (options.task) {
    case Options::REST:
      return call_rest(options, client);
    case Options::FORM:
      return post_form(options, client);
    case Options::NOTIFY:
      return notify_over_http(options, client);
    default:
      return options.bench == 0 ? call_over_http(options, client)
                                : bench_over_http(options, client);
  }
}

}  // namespace

int main(int argc, char** argv) {
  hold_standard_descriptors();
  Options options;
  int status = 0;
  if (!options.parse(argc, argv, status)) return status;
  const Log_Lines log(options.verbose);
  JSON_RPC_Service::create_registries();
  Peer peer({options.url, options.framing, options.timeout, options.task == Options::NOTIFY});
  Http_Client client;
  status = options.http ? run_over_http(options, client) : run_over_channel(options, peer);
  // Whatever is still open or under way goes with the process: to close a
  // connection in order takes seconds where the peer does not close its end.
  leave(status);
}
