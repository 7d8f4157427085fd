#pragma once

#include <sys/types.h>

#include <cstddef>

#include "vexa/vexa_export.h"

/// Something that bytes can be written to: the body of an HTTP exchange, a file, a buffer.
class VEXA_EXPORT IO_Base {
public:
  IO_Base() = default;
  IO_Base(const IO_Base&) = delete;
  IO_Base& operator=(const IO_Base&) = delete;
  virtual ~IO_Base();

  /// Writes `length` bytes from `data`, which is borrowed for the call. All of them: `length`;
  /// otherwise -1 with errno, and how many were written is not known.
  virtual ssize_t write(const char* data, std::size_t length) = 0;
};
