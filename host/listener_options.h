#pragma once

#include <string>
#include <vector>

/// What the command line asks of one listener.
struct Listener_Options {
  std::string url;
  std::string tls_certificate;
  std::string tls_key;
  std::string tls_client_ca;
  std::string rpc_path = "/rpc";
  std::vector<std::string> allow_methods;
  std::vector<std::string> deny_methods;
  std::vector<std::string> allow_origins;
  std::vector<std::string> allow_hosts;
  bool allow_plain = false;  ///< off the loopback interface without TLS
};
