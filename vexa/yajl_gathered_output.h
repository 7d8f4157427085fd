#pragma once

#include <cstddef>
#include <cstring>

#include "vexa/yajl_printer.h"

/// Gathers the many small pieces in which yajl prints a text (a quote, a key, a quote, a colon) and
/// hands them to a printer in large ones: a message costs a few virtual calls instead of several
/// for each of its members. For texts that are written at one go: what is gathered waits for
/// flush(), and is lost without one. One thread.
class YAJL_Gathered_Output {
public:
  /// `printer` is borrowed.
  explicit YAJL_Gathered_Output(YAJL_Printer& printer) : printer_(printer) {}
  YAJL_Gathered_Output(const YAJL_Gathered_Output&) = delete;
  YAJL_Gathered_Output& operator=(const YAJL_Gathered_Output&) = delete;

  /// yajl's print callback; its context is the output.
  static void print_s(void* output, const char* text, std::size_t length) {
    YAJL_Gathered_Output& self = *static_cast<YAJL_Gathered_Output*>(output);
    if (length > sizeof self.buffer_ - self.size_) return self.print_apart(text, length);
    if (length == 1) {  // most pieces: spares the call
      self.buffer_[self.size_++] = *text;
      return;
    }
    std::memcpy(self.buffer_ + self.size_, text, length);
    self.size_ += length;
  }

  void flush() {
    if (size_ != 0) printer_.print(buffer_, size_);
    size_ = 0;
  }

private:
  void print_apart(const char* text, std::size_t length) {
    flush();
    printer_.print(text, length);
  }

  YAJL_Printer& printer_;
  std::size_t size_ = 0;
  char buffer_[2048];
};
