#include "http/http_exchange.h"

#include "http/response_head.h"

Http_Reply::~Http_Reply() = default;

void http::respond_error(Http_Reply& reply, int status, const char* text, HTTP_Headers headers) {
  headers.put(HTTP_HEAD_CONTENT_TYPE, "application/json");
  reply.respond(status, headers, error_body(status, text == nullptr ? "" : text));
}
