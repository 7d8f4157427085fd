#pragma once

#include <yajl/yajl_gen.h>

#include <new>

#include "vexa/yajl_arena.h"
#include "vexa/yajl_printer.h"

/// Owns a generator of yajl, which lies in here. One thread.
class YAJL_Gen_Handle {
public:
  YAJL_Gen_Handle() = default;
  ~YAJL_Gen_Handle() { close(); }
  YAJL_Gen_Handle(const YAJL_Gen_Handle&) = delete;
  YAJL_Gen_Handle& operator=(const YAJL_Gen_Handle&) = delete;

  /// A new generator instead of the one before, which prints to `printer`, borrowed; null when out
  /// of memory.
  yajl_gen_t* open(YAJL_Printer& printer) { return open(&YAJL_Printer::print_s, &printer); }
  yajl_gen_t* open(yajl_print_t print, void* context) {
    close();
    try {
      gen_ = yajl_gen_alloc(arena_.functions());
    } catch (const std::bad_alloc&) {
    }
    // Once: yajl takes a second context for a replacement of its own buffer, and frees the first.
    if (gen_ != nullptr) yajl_gen_config(gen_, yajl_gen_print_callback, print, context);
    return gen_;
  }
  void close() {
    if (gen_ != nullptr) yajl_gen_free(gen_);
    gen_ = nullptr;
  }

  /// Null when none is open.
  yajl_gen_t* get() const { return gen_; }

private:
  yajl_gen_t* gen_ = nullptr;  // in arena_
  YAJL_Arena_T<640> arena_;    // holds a generator
};
