#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "http/http_export.h"
#include "vexa/http_headers.h"

namespace http {

/// How the end of a response's body is told.
enum class Body_End { LENGTH, CHUNKED, CLOSE, NONE };

/// The bytes of a response's head (RFC 9112). `extra` are whole lines. Throws std::bad_alloc.
struct Response_Head {
  int status = 200;
  const HTTP_Headers* headers = nullptr;
  std::string_view content_type;  ///< beside `headers`; empty: none
  std::string_view extra;
  Body_End end = Body_End::LENGTH;
  std::uint64_t length = 0;
  bool keep_alive = true;
  bool http_1_0 = false;  ///< what the request was: then keep-alive has to be said

  void append_to(std::string& text) const;
};

/// The standard's phrase for a status.
const char* reason_phrase(int status);

/// A JSON object that tells of an HTTP error: {"error": {"code": 404, "message": "Not Found"}}.
HTTP_EXPORT std::string error_body(int status, std::string_view message = {});

}  // namespace http
