#include "http/console.h"

#include <ctime>
#include <new>

#include "http/preconditions.h"

namespace http {

namespace {

constexpr int unavailable = 503;

std::string policy() {
  return std::string(
             "default-src 'none'; base-uri 'none'; form-action 'none'; "
             "frame-ancestors 'none'; connect-src 'self' ws: wss:; img-src data:; "
             "style-src '") +
         console_style_hash + "'; script-src '" + console_script_hash + "'";
}

HTTP_Headers page_headers() {
  HTTP_Headers headers;
  headers.put(HTTP_HEAD_CONTENT_TYPE, "text/html; charset=utf-8");
  headers.put(HTTP_HEAD_ETAG, console_tag);
  // Asked for each time: another version of the host may be here by then.
  headers.put(HTTP_HEAD_CACHE_CONTROL, "no-cache");
  headers.put("Content-Security-Policy", policy());
  headers.put("X-Content-Type-Options", "nosniff");
  headers.put("Referrer-Policy", "no-referrer");
  return headers;
}

/// Of this very page; it is no older than the process that has it.
Validators page_validators() {
  static const std::time_t start = std::time(nullptr);
  return {console_tag, false, start};
}

}  // namespace

bool serve_console(const Http_Request_Head& head, Http_Reply& reply) {
  const int method = head.request.method();
  if (head.path != "/" || (method != HTTP_METHOD_GET && method != HTTP_METHOD_HEAD)) return false;
  try {
    const int condition = check_preconditions(head.request, page_validators(), std::time(nullptr));
    reply.respond(condition == 0 ? 200 : condition, page_headers(),
                  condition == 0 ? console_page : std::string());
  } catch (const std::bad_alloc&) {
    reply.respond(unavailable, HTTP_Headers(), std::string());
  }
  return true;
}

}  // namespace http
