#pragma once

#include <memory>
#include <string>

#include "host/listener_options.h"
#include "http/site.h"
#include "transport/server.h"

/// Opens a listener for what its scheme says: tcp, tcps and unix for the stream, http, https, ws
/// and wss for the HTTP front, which shows `site` beside JSON-RPC. 0 and its URL as bound; or -1
/// and a reason in `error`. Before the server starts.
int open_listener(transport::Server& server, const Listener_Options& options,
                  const std::shared_ptr<http::Site>& site, std::string& bound, std::string& error);

/// Opens the operators' listener, on the loopback interface: `site` alone. As above.
int open_admin_listener(transport::Server& server, const std::string& url,
                        const std::shared_ptr<http::Site>& site, std::string& bound,
                        std::string& error);
