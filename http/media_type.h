#pragma once

#include <string_view>

#include "vexa/http_headers.h"

namespace http {

/// The Content-Type of a file by the ending of its name, whose case does not matter;
/// "application/octet-stream" for one that is not known. Text is UTF-8.
const char* media_type(std::string_view name);

/// Whether the fields say that a body is JSON, and nothing around it: application/json, or with
/// `derived` any type that ends in "+json" too.
bool is_json(const HTTP_Headers& headers, bool derived);

}  // namespace http
