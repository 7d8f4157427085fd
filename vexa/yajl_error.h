#pragma once

#include <yajl/yajl_parse.h>

#include <cstddef>

#include "vexa/vexa_export.h"

/// yajl's text for the failure of a handle; "" when it has none. With `verbose` the text quotes the
/// input around the failure, over several lines: give the bytes that were fed last.
class VEXA_EXPORT YAJL_Error {
public:
  YAJL_Error(yajl_handle handle, bool verbose, const char* data, std::size_t length);
  ~YAJL_Error();
  YAJL_Error(const YAJL_Error&) = delete;
  YAJL_Error& operator=(const YAJL_Error&) = delete;

  const char* c_str() const;

private:
  yajl_handle handle_;
  unsigned char* text_;  // yajl's, owned
};
