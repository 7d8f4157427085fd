#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "vexa/http_headers.h"
#include "vexa/natoi.h"

/// What requests and responses say about their connection and their body: accessors over the header
/// fields of a message, CGI_Request or CGI_Response. A setter replaces what was there.
template <typename Message>
class HTTP_Base : public Message {
public:
  void keep_alive(bool on) {
    this->headers().put(HTTP_HEAD_CONNECTION, on ? "Keep-Alive" : "close", true);
  }
  /// What "close" or "Keep-Alive" in Connection says; without either, what the version implies.
  bool keep_alive() const {
    const char* const value = this->headers().get(HTTP_HEAD_CONNECTION);
    if (http_header_value_contains(value, "close", ',')) return false;
    if (http_header_value_contains(value, "Keep-Alive", ',')) return true;
    return this->minor_version() > 0;
  }

  void chunked_transfer_encoding(bool on) {
    if (on) {
      this->headers().put(HTTP_HEAD_TRANSFER_ENCODING, "chunked", true);
    } else {
      this->headers().remove(HTTP_HEAD_TRANSFER_ENCODING);
    }
  }
  /// Whether the value is exactly "chunked".
  bool chunked_transfer_encoding() const {
    const char* const value = this->headers().get(HTTP_HEAD_TRANSFER_ENCODING);
    return value != nullptr && std::strcmp(value, "chunked") == 0;
  }

  void content_type(const char* type) { this->headers().put(HTTP_HEAD_CONTENT_TYPE, type, true); }
  /// The media type with its parameters; null when there is none.
  const char* content_type() const { return this->headers().get(HTTP_HEAD_CONTENT_TYPE); }

  void content_length(std::size_t length) {
    char text[32];
    std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(length));
    this->headers().put(HTTP_HEAD_CONTENT_LENGTH, text, true);
  }
  /// Bytes; 0 when there is no such field.
  std::size_t content_length() const {
    return natoi<std::size_t>(this->headers().get(HTTP_HEAD_CONTENT_LENGTH));
  }
};
