#pragma once

#include <cstddef>

#include "vexa/vexa_export.h"
#include "vexa/yajl_parse_handle.h"

/// yajl's text for the failure of a handle, which is borrowed; "no memory" of one that has closed
/// itself, "" when there is no text. With `verbose` the text quotes the input around the failure,
/// over several lines: give the bytes that were fed last.
class VEXA_EXPORT YAJL_Error {
public:
  YAJL_Error(YAJL_Parse_Handle& handle, bool verbose, const char* data, std::size_t length);
  ~YAJL_Error();
  YAJL_Error(const YAJL_Error&) = delete;
  YAJL_Error& operator=(const YAJL_Error&) = delete;

  const char* c_str() const;

private:
  YAJL_Parse_Handle& handle_;
  unsigned char* text_;  // yajl's, owned
};
