#pragma once

#include <memory>
#include <string>

#include "transport/method_filter.h"
#include "transport/opened.h"
#include "vexa/cgi_request.h"

namespace http {

/// What of WebSocket is spoken, and the field that says so.
constexpr const char* websocket_version_field = "Sec-WebSocket-Version";
constexpr const char* websocket_version = "13";

/// Whether the request, a GET that asks for WebSocket, is a handshake that can be accepted (RFC
/// 6455 section 4.2.1).
bool is_websocket_handshake(const CGI_Request& request);

/// Accepts the handshake and serves JSON-RPC over WebSocket: a text message is a JSON-RPC message.
/// `leftover` came behind the request. On the loop of `opened`. Throws std::bad_alloc.
void serve_websocket(transport::Opened opened, const CGI_Request& request,
                     const std::string& leftover,
                     const std::shared_ptr<const transport::Method_Filter>& filter);

}  // namespace http
