#include "vexa/yajl_error.h"

YAJL_Error::YAJL_Error(yajl_handle handle, bool verbose, const char* data, std::size_t length)
    : handle_(handle),
      text_(yajl_get_error(handle, verbose ? 1 : 0, reinterpret_cast<const unsigned char*>(data),
                           length)) {}

YAJL_Error::~YAJL_Error() {
  if (text_ != nullptr) yajl_free_error(handle_, text_);
}

const char* YAJL_Error::c_str() const {
  return text_ == nullptr ? "" : reinterpret_cast<const char*>(text_);
}
