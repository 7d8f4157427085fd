#pragma once

#include <cstddef>

#include "vexa/yajl_printer.h"

/// Sends a generator's text as the body of an HTTP request, piece by piece. After the first failure
/// to send, everything further is dropped, so the failure shows once, at the end. Stream is an
/// HTTP_Connection, or has its send().
template <typename Stream>
class YAJL_HTTP_SOCK_Stream_T_Printer final : public YAJL_Printer {
public:
  /// Borrows the stream.
  explicit YAJL_HTTP_SOCK_Stream_T_Printer(Stream* stream) : stream_(stream) {}

  void print(const char* data, std::size_t len) override {
    if (data == nullptr || len == 0 || !ok_) return;
    if (stream_->send(data, len) == -1) ok_ = false;
  }

  /// Whether all was sent so far.
  explicit operator bool() const { return ok_; }

private:
  Stream* const stream_;
  bool ok_ = true;
};
