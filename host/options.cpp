#include "host/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <thread>
#include <utility>

#include "transport/endpoint.h"

namespace {

constexpr int usage_error = 2;
constexpr std::size_t max_seconds = std::size_t{365} * 24 * 3600;

/// The configuration that was built, or installed, with this program.
std::string default_svc() {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return "svc.conf";
  const std::string program(path, length);
  return program.substr(0, program.rfind('/')) + "/../etc/json_rpc/svc.conf";
}

/// The first line of a file, if it is of characters that are the same in any encoding and in JSON.
bool read_token(const std::string& file, std::string& token) {
  std::ifstream in(file);
  return std::getline(in, token) && !token.empty() &&
         std::all_of(token.begin(), token.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

bool good_url(const char* option, const std::string& url, transport::Endpoint::Schemes schemes) {
  transport::Endpoint ignored;
  std::string reason;
  if (transport::Endpoint::parse(url, schemes, ignored, reason)) return true;
  std::cerr << "json_rpc_host: " << option << ' ' << url << ": " << reason << '\n';
  return false;
}

/// The options that belong to a listener: what stands before the first --listen holds for all, what
/// stands behind one for that one alone.
class Listener_Arguments {
public:
  void add_to(CLI::App& app) {
    listen_ =
        add(app, "--listen",
            "Where to serve, repeatable; port 0 picks one: tcp://ADDRESS:PORT or unix://PATH for "
            "a stream of messages, http:// for JSON-RPC over HTTP, WebSocket and RESTful "
            "handlers, ws:// for WebSocket alone; tcps://, https:// and wss:// with TLS. The "
            "options below that stand behind a --listen are for it, those before the first "
            "one for all [tcp://127.0.0.1:7070 http://127.0.0.1:8080, unless --connect]",
            [](Listener_Options& listener, const std::string& v) { listener.url = v; });
    add(app, "--tls-cert", "Its certificate chain, a PEM file",
        [](Listener_Options& listener, const std::string& v) { listener.tls_certificate = v; });
    add(app, "--tls-key", "Its private key, a PEM file",
        [](Listener_Options& listener, const std::string& v) { listener.tls_key = v; });
    add(app, "--tls-client-ca", "Peers must show a certificate that one of this PEM file signed",
        [](Listener_Options& listener, const std::string& v) { listener.tls_client_ca = v; });
    add(app, "--rpc-path", "Where HTTP serves JSON-RPC and WebSocket [/rpc]",
        [](Listener_Options& listener, const std::string& v) { listener.rpc_path = v; });
    add(app, "--allow-method", "Methods that may be called, * for any text; repeatable [all]",
        [](Listener_Options& listener, const std::string& v) {
          listener.allow_methods.push_back(v);
        });
    add(app, "--deny-method", "Methods that may not be called; repeatable",
        [](Listener_Options& listener, const std::string& v) {
          listener.deny_methods.push_back(v);
        });
    add(app, "--allow-origin", "Another site whose pages may call, as https://site; * for any",
        [](Listener_Options& listener, const std::string& v) {
          listener.allow_origins.push_back(v);
        });
    add(app, "--allow-host", "A name under which HTTP is served, beside addresses and localhost",
        [](Listener_Options& listener, const std::string& v) {
          listener.allow_hosts.push_back(v);
        });
    plain_ = app.add_flag("--allow-plain",
                          "It may be off the loopback interface without TLS, readable by all");
  }

  /// Once the command line has been parsed.
  std::vector<Listener_Options> listeners(const CLI::App& app) const {
    std::vector<Listener_Options> made;
    Listener_Options common;
    std::map<const CLI::Option*, std::size_t> used;
    for (const CLI::Option* option : app.parse_order()) {
      if (option == listen_) made.push_back(common);
      Listener_Options& target = made.empty() ? common : made.back();
      if (option == plain_) target.allow_plain = true;
      const auto known = setters_.find(option);
      if (known != setters_.end()) known->second(target, option->results()[used[option]++]);
    }
    if (made.empty()) made.push_back(common);
    return made;
  }

private:
  typedef std::function<void(Listener_Options&, const std::string&)> Setter;

  const CLI::Option* add(CLI::App& app, const char* name, const char* help, Setter setter) {
    const CLI::Option* const option =
        app.add_option(name, values_[name], help)->allow_extra_args(false);
    setters_[option] = std::move(setter);
    return option;
  }

  std::map<std::string, std::vector<std::string>> values_;
  std::map<const CLI::Option*, Setter> setters_;
  const CLI::Option* listen_ = nullptr;
  const CLI::Option* plain_ = nullptr;
};

/// Where to listen when nothing was said.
std::vector<Listener_Options> default_listeners(const Listener_Options& common) {
  std::vector<Listener_Options> made(2, common);
  made[0].url = "tcp://127.0.0.1:7070";
  made[1].url = "http://127.0.0.1:8080";
  return made;
}

}  // namespace

bool Options::parse(int argc, char** argv, int& status) {
  svc = default_svc();
  threads = std::max(1u, std::thread::hardware_concurrency());
  std::size_t stall = limits.stall_timeout.count() / 1000;
  std::size_t idle = limits.idle_timeout.count() / 1000;
  std::size_t drain_seconds = drain.count();

  CLI::App app("Serves JSON-RPC 2.0 methods of plug-in libraries.", "json_rpc_host");
  app.set_version_flag("--version", "json_rpc_host " JSON_RPC_VERSION);
  app.add_option("--svc", svc, "Service configurator file that names what to load")
      ->capture_default_str();
  Listener_Arguments listeners;
  listeners.add_to(app);
  app.add_option("--admin", admin,
                 "http://ADDRESS:PORT on the loopback interface for /livez, /readyz and /metrics");
  app.add_option("--site", site, "JSON file that names files and redirects to serve over HTTP");
  CLI::Option* const links =
      app.add_option(
             "--connect", connect,
             "A peer to keep a connection to, tcp:// or unix://, repeatable; tried again after 1, "
             "2, 4 and so on up to 60 seconds")
          ->allow_extra_args(false);
  app.add_flag("--default", default_link,
               "Calls that name no channel, and notifications, go over the first --connect")
      ->needs(links);
  const CLI::Option* const given_id =
      app.add_option("--agent-id", agent_id, "Register with the peers of --connect as this agent")
          ->needs(links);
  std::string token_file;
  app.add_option("--agent-token", token_file,
                 "File whose first line is the secret that agents show; without it agents register "
                 "from this machine only");
  app.add_option("--threads", threads, "Loop threads")
      ->check(CLI::Range(1u, 1024u))
      ->capture_default_str();
  app.add_option("--max-message", limits.max_message,
                 "Bytes of one message, 0 for no limit: over it -32600, then closed")
      ->check(CLI::Range(std::size_t{0}, std::numeric_limits<std::size_t>::max() / 2))
      ->capture_default_str();
  app.add_option("--max-queue", limits.max_queue,
                 "Unsent bytes of a channel: over it a notification closes the channel, with a "
                 "quarter of it in answers requests wait")
      ->check(CLI::Range(std::size_t{1024}, std::numeric_limits<std::size_t>::max() / 2))
      ->capture_default_str();
  app.add_option("--max-pending", limits.max_pending,
                 "Requests of a channel in work: at it further ones wait")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 24))
      ->capture_default_str();
  app.add_option("--max-connections", limits.max_connections,
                 "Open connections: at it accepting pauses")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 24))
      ->capture_default_str();
  app.add_option("--stall-timeout", stall,
                 "Seconds without a byte in a begun message, or without a byte taken by the peer: "
                 "closed")
      ->check(CLI::Range(std::size_t{1}, max_seconds))
      ->capture_default_str();
  app.add_option("--idle-timeout", idle,
                 "Seconds without traffic: closed, unless subscribed or owed an answer")
      ->check(CLI::Range(std::size_t{1}, max_seconds))
      ->capture_default_str();
  app.add_option("--drain", drain_seconds, "Seconds for requests in work at the stop")
      ->check(CLI::Range(std::size_t{0}, max_seconds))
      ->capture_default_str();
  app.add_option("--log-level", log_level, "debug, info, warning or error")
      ->check(CLI::IsMember({"debug", "info", "warning", "error"}))
      ->capture_default_str();
  app.add_flag("--check", check, "Load everything, report what is bad, and exit");

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    status = app.exit(asked);
    return false;
  } catch (const CLI::ParseError& error) {
    std::cerr << "json_rpc_host: " << error.what() << '\n';
    status = usage_error;
    return false;
  }
  limits.stall_timeout = std::chrono::seconds(stall);
  limits.idle_timeout = std::chrono::seconds(idle);
  drain = std::chrono::seconds(drain_seconds);
  listen = listeners.listeners(app);
  if (listen.front().url.empty()) {
    listen = connect.empty() ? default_listeners(listen.front()) : std::vector<Listener_Options>();
  }
  status = usage_error;
  if (!token_file.empty() && !read_token(token_file, agent_token)) {
    std::cerr << "json_rpc_host: --agent-token " << token_file
              << ": it has no first line of printable ASCII\n";
    return false;
  }
  if (given_id->count() > 0 && agent_id.empty()) {
    std::cerr << "json_rpc_host: --agent-id: it is empty\n";
    return false;
  }
  for (const Listener_Options& listener : listen) {
    if (!good_url("--listen", listener.url, transport::Endpoint::DOORS)) return false;
  }
  for (const std::string& url : connect) {
    if (!good_url("--connect", url, transport::Endpoint::STREAMS)) return false;
  }
  status = 0;
  return true;
}
