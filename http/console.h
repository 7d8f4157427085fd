#pragma once

#include "http/http_exchange.h"

namespace http {

/// Answers GET and HEAD of "/" with the console: a page that calls methods and shows notifications
/// in a browser. False, and nothing is answered, to other requests.
///
/// A Content-Security-Policy lets the page run its own script and nothing else, connect to this
/// server and by WebSocket, and stand in no other page's frame. 304 and 412 as conditions demand,
/// 503 without memory.
HTTP_EXPORT bool serve_console(const Http_Request_Head& head, Http_Reply& reply);

// What the build makes of console_page.html: see embed_console.cmake.
extern const char console_page[];
extern const char console_style_hash[];   ///< as a policy has it: "sha256-" and base 64
extern const char console_script_hash[];  ///< as above
extern const char console_tag[];          ///< the page's entity tag, with its quotes

}  // namespace http
