#include "host/front_site.h"

#include <limits>

#include "http/console.h"
#include "http/redirects.h"
#include "http/response_head.h"
#include "http/restful.h"
#include "http/static_files.h"
#include "json_rpc/json_restful_request_map.h"
#include "vexa/http_file_uri_map.h"
#include "vexa/http_redirect_uri_map.h"

Front_Site::Front_Site(std::size_t max_body)
    : max_body_(max_body != 0 ? max_body : std::numeric_limits<std::size_t>::max()) {}

bool Front_Site::wants_body(const Http_Request_Head& head) const {
  std::size_t prefix;
  return JSON_RESTful_Request_Map::instance()->find(head.path, '/', prefix) != nullptr;
}

void Front_Site::answer(Http_Request_Head& head, std::string& body, http::Exchange& exchange) {
  if (wants_body(head) && http::serve_restful(*JSON_RESTful_Request_Map::instance(), head, body,
                                              max_body_, exchange.defer())) {
    return;
  }
  if (http::redirect(*HTTP_Redirect_URI_Map::instance(), head, exchange)) return;
  if (http::serve_file(*HTTP_File_URI_Map::instance(), head, exchange)) return;
  if (http::serve_console(head, exchange)) return;
  http::respond_error(exchange, 404);
}
