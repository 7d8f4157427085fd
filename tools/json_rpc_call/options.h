#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/json_rpc_call/http_url.h"
#include "tools/json_rpc_call/output.h"
#include "transport/framing.h"

/// What the command line asks for.
struct Options {
  /// What is to be done; each has its own words behind the options.
  enum Task {
    CALL,       ///< URL METHOD [PARAMS], also with --bench
    NOTIFY,     ///< URL METHOD [PARAMS]
    SUBSCRIBE,  ///< URL
    REST,       ///< URL [BODY]
    FORM        ///< URL
  };

  Task task = CALL;
  std::string url;
  bool http = false;   ///< over HTTP, else over a stream
  Http_URL http_url;   ///< where over HTTP
  std::string method;  ///< of JSON-RPC; of REST the HTTP method
  std::string input;   ///< PARAMS or BODY as given
  bool has_input = false;
  std::string agent;  ///< "" none

  std::vector<std::string> subjects;
  std::size_t count = 0;  ///< notifications after which to end; 0: never

  std::chrono::seconds timeout{60};
  int retries = 0;         ///< -1: no limit
  int retry_seconds = -1;  ///< -1: no limit

  std::size_t bench = 0;  ///< calls; 0: no benchmark
  unsigned int concurrency = 1;

  transport::Framing framing = transport::Framing::LINES;
  std::map<std::string, std::string> form;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string cacert;  ///< a file; "": what the system trusts
  bool insecure = false;
  bool stream = true;  ///< HTTP bodies in chunks, else with a length

  Output_Style style;
  bool verbose = false;

  /// Reads the command line. False when the process is to end now with `status`: help or version
  /// was asked for, or something is wrong, which has been told.
  bool parse(int argc, char** argv, int& status);
};
