#pragma once

#include "http/http_exchange.h"
#include "vexa/http_uri_map.h"

namespace http {

/// Answers a request for a path under a prefix that is served from files (prefix -> root folder).
/// False, and nothing is answered, when no prefix of `files` fits. `files` is filled before the
/// first request.
///
/// GET and HEAD of regular files, of parts of them (one byte range), with conditions; a folder is
/// its index.html. Nothing outside of the root is reached, whatever links there are; names that
/// begin with '.' are not there. Others get
///
///   308  a folder without the '/' behind it, for else its relative links would lead astray
///   304, 412, 416  as conditions and range demand
///   403  a file that this process may not read
///   404  nothing to be served there
///   405  another method
///   500  the root cannot be opened (an error line says why)
///   503  no descriptor or no memory to be had
///
/// Opening may touch a disk, and does so on the caller's thread.
HTTP_EXPORT bool serve_file(const HTTP_URI_Map& files, const Http_Request_Head& head,
                            Http_Reply& reply);

}  // namespace http
