#include "http/http_exchange.h"

#include <utility>

Http_Reply::~Http_Reply() = default;

void http::respond_text(Http_Reply& reply, int status, const char* text, HTTP_Headers headers) {
  headers.put(HTTP_HEAD_CONTENT_TYPE, "text/plain; charset=utf-8");
  headers.put("X-Content-Type-Options", "nosniff");
  reply.respond(status, headers, std::string(text) + "\n");
}
