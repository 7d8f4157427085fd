#include "host/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <limits>
#include <thread>

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

bool good_urls(const char* option, const std::vector<std::string>& urls) {
  for (const std::string& url : urls) {
    transport::Endpoint ignored;
    std::string reason;
    if (transport::Endpoint::parse(url, ignored, reason)) continue;
    std::cerr << "json_rpc_host: " << option << ' ' << url << ": " << reason << '\n';
    return false;
  }
  return true;
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
  app.add_option("--listen", listen,
                 "tcp://ADDRESS:PORT or unix://PATH, repeatable; port 0 picks one "
                 "[tcp://127.0.0.1:7070, unless --connect]")
      ->allow_extra_args(false);
  CLI::Option* const links =
      app.add_option(
             "--connect", connect,
             "A peer to keep a connection to, as --listen, repeatable; tried again after 1, "
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
  if (listen.empty() && connect.empty()) listen.push_back("tcp://127.0.0.1:7070");
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
  if (!good_urls("--listen", listen) || !good_urls("--connect", connect)) return false;
  status = 0;
  return true;
}
