#include "vexa/yajl_error.h"

YAJL_Error::YAJL_Error(YAJL_Parse_Handle& handle, bool verbose, const char* data,
                       std::size_t length)
    : handle_(handle), text_(handle.is_open() ? handle.error(verbose, data, length) : nullptr) {}

YAJL_Error::~YAJL_Error() {
  if (text_ != nullptr) handle_.free_error(text_);
}

const char* YAJL_Error::c_str() const {
  if (!handle_.is_open()) return "no memory";
  return text_ == nullptr ? "" : reinterpret_cast<const char*>(text_);
}
