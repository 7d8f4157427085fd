#pragma once

#include <string_view>

namespace http {

/// The Content-Type of a file by the ending of its name, whose case does not matter;
/// "application/octet-stream" for one that is not known. Text is UTF-8.
const char* media_type(std::string_view name);

}  // namespace http
