#include "host/admin_site.h"

#include <iterator>

#include "http/process_readings.h"
#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "vexa/cgi_request.h"

namespace {

/// What is read when somebody asks: on a loop's thread, so nothing of it waits for a loop.
std::vector<http::Reading> make_readings(const transport::Server& server) {
  using http::Reading;
  std::vector<Reading> readings = {
      {"json_rpc_requests_in_flight", "Requests in work.", Reading::GAUGE,
       [&server] { return static_cast<double>(server.load().owed); }},
      {"json_rpc_unsent_bytes", "Bytes that wait to be handed to the system.", Reading::GAUGE,
       [&server] { return static_cast<double>(server.load().unsent); }},
      {"json_rpc_connections", "Open connections.", Reading::GAUGE,
       [&server] { return static_cast<double>(server.connections()); }},
      {"json_rpc_channels", "Registered channels.", Reading::GAUGE,
       [] { return static_cast<double>(JSON_RPC_Channel_Map::instance()->size()); }},
      {"json_rpc_subscriptions", "Subscriptions of notifications.", Reading::GAUGE,
       [] { return static_cast<double>(JSON_RPC_Notify_Manager::instance()->size()); }},
      {"json_rpc_pool_tasks", "Calls that wait for the pool or run on it.", Reading::GAUGE,
       [] { return static_cast<double>(JSON_RPC_Thread_Pool_Handler::busy()); }},
      {"json_rpc_pool_queue_depth", "Calls that wait for the pool.", Reading::GAUGE,
       [] { return static_cast<double>(JSON_RPC_Thread_Pool_Handler::waiting()); }},
      {"json_rpc_pool_refusals_total", "Calls for which the pool had no room.", Reading::COUNTER,
       [] { return static_cast<double>(JSON_RPC_Thread_Pool_Handler::refusals()); }}};
  std::vector<Reading> process = http::process_readings();
  readings.insert(readings.end(), std::make_move_iterator(process.begin()),
                  std::make_move_iterator(process.end()));
  return readings;
}

}  // namespace

Admin_Site::Admin_Site(const http::Readiness& readiness, const transport::Server& server)
    : readings_(make_readings(server)), admin_(readiness, [this, &server] {
        return http::prometheus_text(server.metrics(), readings_);
      }) {}

void Admin_Site::answer(Http_Request_Head& head, std::string&, http::Exchange& exchange) {
  const http::Admin::Answer answer =
      admin_.answer(http_method_name(head.request.method()), head.path);
  exchange.respond(answer.status, answer.headers, answer.body);
}
