#include "http/redirects.h"

#include <new>

#include "http/target.h"

namespace {

constexpr int permanent_redirect = 308;
constexpr int unavailable = 503;

}  // namespace

std::string http::join_uri(std::string_view uri, std::string_view rest) {
  std::string joined(uri);
  if (rest.empty()) return joined;
  if (!joined.empty() && joined.back() == '/') joined.pop_back();
  if (rest.front() != '/') joined += '/';
  return joined.append(rest);
}

void http::respond_moved(const std::string& uri, const Http_Request_Head& head, Http_Reply& reply) {
  HTTP_Headers headers;
  headers.put(HTTP_HEAD_LOCATION, head.query.empty() ? uri : uri + "?" + head.query);
  // A target that no field can hold comes from the configuration, and without it a redirect leads
  // nowhere.
  if (headers.refused()) return respond_error(reply, 500, "The redirect is broken.");
  reply.respond(permanent_redirect, headers, std::string());
}

bool http::redirect(const HTTP_URI_Map& redirects, const Http_Request_Head& head,
                    Http_Reply& reply) {
  std::string::size_type length = 0;
  const std::string* const target = redirects.find(head.path, length);
  if (target == nullptr) return false;
  try {
    respond_moved(join_uri(*target, encode_path(head.path.substr(length))), head, reply);
  } catch (const std::bad_alloc&) {
    reply.respond(unavailable, HTTP_Headers(), std::string());
  }
  return true;
}
