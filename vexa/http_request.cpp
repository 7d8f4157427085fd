#include "vexa/http_request.h"

#include <new>
#include <string>
#include <string_view>

namespace {

/// Whether a byte has to be encoded in a URI. Control characters are left for the session to
/// refuse.
bool to_encode(unsigned char c) {
  return c >= 0x80 || (c != '\0' && std::string_view(" \"<>\\^`{|}").find(static_cast<char>(c)) !=
                                        std::string_view::npos);
}

std::string encoded(std::string_view uri) {
  static const char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : uri) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (to_encode(byte)) {
      text += '%';
      text += digits[byte >> 4];
      text += digits[byte & 15];
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace

HTTP_Request::HTTP_Request(int method, const char* uri, bool encode) {
  this->method(method);
  if (!encode || uri == nullptr) {
    this->uri(uri);
    return;
  }
  try {
    this->uri(encoded(uri));
  } catch (const std::bad_alloc&) {
    this->uri("");
  }
}
