#pragma once

#include <cstddef>

#include "http/http_export.h"
#include "vexa/http_uri_map.h"

namespace http {

/// Reads what of a site is files and what has moved:
///
///     {"files": {"/doc": "/srv/doc"}, "redirects": {"/old": "/new", "/wiki": "https://host/wiki"}}
///
/// into the two maps, at start. A prefix is a path as it is after decoding; a folder must exist,
/// and counts from the working folder when it does not begin with '/'; a redirect leads to a path
/// or to a http(s) URL without query, and not back to itself. A prefix is in one map only. How much
/// failed, each with an error line: what is good is taken. A file that cannot be read, or is no
/// such object, counts one. Throws nothing.
HTTP_EXPORT std::size_t load_site(const char* path, HTTP_URI_Map& files, HTTP_URI_Map& redirects);

}  // namespace http
