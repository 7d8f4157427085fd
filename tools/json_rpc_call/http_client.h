#pragma once

#include <memory>
#include <string>

#include "tools/json_rpc_call/options.h"
#include "vexa/http_session.h"
#include "vexa/http_session_factory.h"

/// An HTTP session as the options want it: where to, whom to trust, which default fields.
class Http_Client {
public:
  Http_Client();
  ~Http_Client();
  Http_Client(const Http_Client&) = delete;
  Http_Client& operator=(const Http_Client&) = delete;

  /// Makes the session; nothing is connected yet. False with a reason in `error`.
  bool open(const Options& options, std::string& error);

  const HTTP_Session_var& session() const { return session_; }

private:
  std::unique_ptr<ACE_SSL_Context> trust_;  // null: what the system trusts; outlives session_
  HTTP_Session_var session_;
};
