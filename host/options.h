#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "transport/limits.h"

/// What the command line asks of the host.
struct Options {
  std::string svc;                  ///< the service configurator's file
  std::vector<std::string> listen;  ///< URLs
  unsigned int threads = 0;         ///< loops
  transport::Limits limits;
  std::chrono::seconds drain{10};
  std::string log_level = "info";
  bool check = false;

  /// Reads the command line. False when the process is to end now with `status`: help or version
  /// was asked for (0), or an option is bad (2, one line on standard error).
  bool parse(int argc, char** argv, int& status);
};
