#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/listener_options.h"
#include "transport/limits.h"

/// What the command line asks of the host.
struct Options {
  std::string svc;  ///< the service configurator's file
  std::vector<Listener_Options> listen;
  std::string admin;                 ///< URL of the operators' listener; empty: none
  std::string site;                  ///< file that names files and redirects; empty: none
  std::vector<std::string> connect;  ///< URLs of links
  bool default_link = false;         ///< the first link is the process's default channel
  std::string agent_id;              ///< what the links register as; empty: they do not
  std::string agent_token;           ///< the secret of agents; empty: none
  unsigned int threads = 0;          ///< loops
  transport::Limits limits;
  std::chrono::seconds drain{10};
  std::string log_level = "info";
  bool check = false;

  /// Reads the command line. False when the process is to end now with `status`: help or version
  /// was asked for (0), or an option is bad (2, one line on standard error).
  bool parse(int argc, char** argv, int& status);
};
