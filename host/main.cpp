// The reference host: loads the library and its handlers through the service configurator, opens
// listeners, serves until SIGTERM or SIGINT, and stops in order.

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <utility>

#include "host/admin_site.h"
#include "host/agent_registration.h"
#include "host/front_site.h"
#include "host/listeners.h"
#include "host/log_output.h"
#include "host/options.h"
#include "host/service_manager.h"
#include "host/services.h"
#include "http/discover.h"
#include "http/http_site.h"
#include "http/restful.h"
#include "json_rpc/global_json_rpc_channel.h"
#include "json_rpc/json_restful_handler_creator_map.h"
#include "json_rpc/json_restful_request_map.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "transport/server.h"
#include "vexa/http_file_uri_map.h"
#include "vexa/http_redirect_uri_map.h"
#include "vexa/log.h"
#include "vexa/standard_descriptors.h"

namespace {

constexpr int bad_configuration = 1;
constexpr int bad_start = 2;
constexpr rlim_t other_descriptors = 64;          // beside the connections
constexpr std::chrono::seconds loop_patience{2};  // for a loop to show that it lives
constexpr std::chrono::seconds last_words{15};    // beyond the drain, for the stop

/// Makes room for the connections among the process's descriptors; where the system has not as
/// many, fewer connections are allowed.
void fit_descriptors(transport::Limits& limits) {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t wanted = limits.max_connections + other_descriptors;
  if (limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  if (limit.rlim_cur >= wanted) return;
  limits.max_connections =
      std::max<rlim_t>(limit.rlim_cur, other_descriptors + 1) - other_descriptors;
  VEXA_WARNING("The system allows %B descriptors: at most %B connections.\n",
               static_cast<size_t>(limit.rlim_cur), limits.max_connections);
}

/// The signals that stop the host, blocked in every thread from before the first one.
sigset_t stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

void wait_for_stop(const sigset_t& signals) {
  int signal = 0;
  while (sigwait(&signals, &signal) != 0) {
  }
  VEXA_INFO("Stopping on signal %d.\n", signal);
  // A second one ends the process at once.
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// Whether no handler runs on the pool or on a thread of its own; those that have just answered get
/// a moment to return.
bool handlers_end() {
  for (int i = 0; i < 100; ++i) {
    if (JSON_RPC_Thread_Pool_Handler::busy() == 0 && JSON_RPC_Thread_Handler::running() == 0) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

bool opened(int result, const std::string& url, const std::string& bound,
            const std::string& error) {
  if (result == 0) {
    std::cout << "listening " << bound << '\n';
  } else {
    std::cerr << "json_rpc_host: cannot listen on " << url << ": " << error << '\n';
  }
  return result == 0;
}

bool open_listeners(transport::Server& server, const Options& options,
                    const http::Readiness& readiness) {
  const auto site = std::make_shared<Front_Site>(options.limits.max_message);
  for (const Listener_Options& listener : options.listen) {
    std::string bound;
    std::string error;
    const int result = open_listener(server, listener, site, bound, error);
    if (!opened(result, listener.url, bound, error)) return false;
  }
  if (options.admin.empty()) return true;
  std::string bound;
  std::string error;
  const auto admin = std::make_shared<Admin_Site>(readiness, server);
  const int result = open_admin_listener(server, options.admin, admin, bound, error);
  return opened(result, options.admin, bound, error);
}

/// Registers what this process serves by itself, after what was loaded. How much failed.
std::size_t serve_own(const Options& options) {
  if (serve_agent_registration(options.agent_token) != 0) {
    VEXA_WARNING("A plug-in serves 'channel.register': agents register with it.\n");
  }
  if (http::serve_discovery("json_rpc_host", JSON_RPC_VERSION) != 0) {
    VEXA_WARNING("A plug-in serves 'rpc.discover'.\n");
  }
  const std::size_t failed = http::make_restful_handlers(
      *JSON_RESTful_Handler_Creator_Map::instance(), *JSON_RESTful_Request_Map::instance());
  if (options.site.empty()) return failed;
  return failed + http::load_site(options.site.c_str(), *HTTP_File_URI_Map::instance(),
                                  *HTTP_Redirect_URI_Map::instance());
}

bool open_links(transport::Server& server, const Options& options) {
  transport::Link_Options link;
  link.patient = true;
  if (!options.agent_id.empty()) {
    link.greeting = agent_greeting(options.agent_id, options.agent_token);
  }
  bool is_default = options.default_link;
  for (const std::string& url : options.connect) {
    JSON_RPC_Channel_ptr channel;
    std::string error;
    if (server.connect(url, link, channel, error) != 0) {
      std::cerr << "json_rpc_host: cannot connect to " << url << ": " << error << '\n';
      return false;
    }
    if (std::exchange(is_default, false)) Global_JSON_RPC_Channel::instance(channel);
  }
  return true;
}

int check(Services& services, const Options& options, const Log_Output& log) {
  const bool good = services.load(options.svc) == 0 && Services::ready() &&
                    Services::failures() == 0 && serve_own(options) == 0 && log.errors() == 0;
  services.close();
  std::cout << options.svc << (good ? ": good\n" : ": bad, see the log\n");
  return good ? 0 : bad_configuration;
}

int serve(Services& services, const Options& options, std::size_t failures,
          const sigset_t& signals) {
  http::Readiness readiness;
  transport::Server server(options.limits, options.threads);
  readiness.configured(failures + serve_own(options));
  readiness.pool_up();  // the service is there, so its pool is, if one is asked for
  if (!open_listeners(server, options, readiness) || !open_links(server, options)) {
    services.close();
    return bad_start;
  }
  server.start();
  readiness.serving();
  std::cout << "ready" << std::endl;
  Service_Manager manager;
  manager.ready("serving");
  manager.begin_watchdog([&server] { return server.alive(loop_patience); });
  wait_for_stop(signals);
  readiness.stopping();
  manager.stopping(options.drain + last_words);
  const bool stopped = server.stop(options.drain) == 0;
  manager.end_watchdog();

  // A handler that does not end would hold the stop of its service, or its loop, for ever.
  if (!stopped || !handlers_end()) {
    VEXA_WARNING("Handlers still run: the process leaves without finishing its services.\n");
    ::_exit(0);
  }
  services.close();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  hold_standard_descriptors();
  Options options;
  int status = 0;
  if (!options.parse(argc, argv, status)) return status;
  ::signal(SIGPIPE, SIG_IGN);
  const sigset_t signals = stop_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  Log_Output log(options.log_level);
  Services services;
  if (options.check) return check(services, options, log);
  fit_descriptors(options.limits);
  const int failed = services.load(options.svc);
  if (!Services::ready()) {
    services.close();
    std::cerr << "json_rpc_host: " << options.svc << " could not be loaded\n";
    return bad_start;
  }
  return serve(services, options, failed + Services::failures(), signals);
}
