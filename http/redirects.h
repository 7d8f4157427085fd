#pragma once

#include <string>
#include <string_view>

#include "http/http_exchange.h"
#include "vexa/http_uri_map.h"

namespace http {

/// Answers a request under a prefix that has moved: 308, so that a POST stays one with its body
/// (with 301 clients make it a GET). What follows the prefix is appended to the new URI, and the
/// query. False, and nothing is answered, when no prefix of `redirects` fits. `redirects` is filled
/// before the first request.
HTTP_EXPORT bool redirect(const HTTP_URI_Map& redirects, const Http_Request_Head& head,
                          Http_Reply& reply);

/// Answers that the same query is at `uri`, which is encoded.
void respond_moved(const std::string& uri, const Http_Request_Head& head, Http_Reply& reply);

/// `rest` of a path behind `uri` with one '/' between them; `uri` as it is when there is no rest.
/// Throws std::bad_alloc.
std::string join_uri(std::string_view uri, std::string_view rest);

}  // namespace http
