#pragma once

#include <cstddef>
#include <string>

#include "vexa/vexa_export.h"

/// Where a yajl generator's text goes.
class VEXA_EXPORT YAJL_Printer {
public:
  virtual ~YAJL_Printer() = default;
  virtual void print(const char* text, std::size_t length) = 0;

  /// yajl's print callback; its context is the printer.
  static void print_s(void* printer, const char* text, std::size_t length) {
    static_cast<YAJL_Printer*>(printer)->print(text, length);
  }
};

/// Appends to a string that outlives it.
class VEXA_EXPORT YAJL_String_Printer final : public YAJL_Printer {
public:
  explicit YAJL_String_Printer(std::string& sink) : sink_(sink) {}
  void print(const char* text, std::size_t length) override { sink_.append(text, length); }

private:
  std::string& sink_;
};
