#pragma once

#include <yajl/yajl_parse.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "vexa/yajl_arena.h"

/// A parse handle of yajl that fails without memory, where yajl itself would crash. One thread; not
/// to be fed, opened or closed from within an event of its own.
class YAJL_Parse_Handle {
public:
  YAJL_Parse_Handle() = default;
  YAJL_Parse_Handle(const YAJL_Parse_Handle&) = delete;
  YAJL_Parse_Handle& operator=(const YAJL_Parse_Handle&) = delete;

  /// A new handle instead of the one before, for one text; both arguments are borrowed. False with
  /// errno ENOMEM.
  bool open(const yajl_callbacks* callbacks, void* context) {
    close();
    try {
      handle_.reset(yajl_alloc(callbacks, arena_.functions(), context));
    } catch (const std::bad_alloc&) {
      errno = ENOMEM;
    }
    return is_open();
  }
  void close() { handle_.reset(); }
  bool is_open() const { return handle_ != nullptr; }

  /// Null when none is open.
  yajl_handle get() const { return handle_.get(); }

  /// Feeds an open handle; with length 0 the text has ended. Without memory: yajl_status_error and
  /// errno ENOMEM, and no handle is open any more.
  yajl_status feed(const char* data, std::size_t length) {
    try {
      return length != 0 ? yajl_parse(get(), reinterpret_cast<const unsigned char*>(data), length)
                         : yajl_complete_parse(get());
    } catch (const std::bad_alloc&) {
      close();
      errno = ENOMEM;
      return yajl_status_error;
    }
  }

  /// yajl's text for the failure, with `verbose` quoting what was fed last, for free_error(); null
  /// without memory.
  unsigned char* error(bool verbose, const char* data, std::size_t length) {
    arena_.throws(false);
    unsigned char* const text = yajl_get_error(
        get(), verbose ? 1 : 0, reinterpret_cast<const unsigned char*>(data), length);
    arena_.throws(true);
    return text;
  }
  void free_error(unsigned char* text) { yajl_free_error(get(), text); }

private:
  struct Free {
    void operator()(yajl_handle handle) const { yajl_free(handle); }
  };

  YAJL_Arena_T<512> arena_;  // what a handle needs for a message without long or escaped texts
  std::unique_ptr<yajl_handle_t, Free> handle_;
};
