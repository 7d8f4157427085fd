#pragma once

#include <yajl/yajl_parse.h>

#include <cstddef>

#include "vexa/vexa_export.h"

/// Receives the events of a yajl parse handle. Every operation returns whether parsing goes on; the
/// base class accepts and ignores everything. The text of an event is borrowed for the call, is not
/// terminated and need not be valid UTF-8.
class VEXA_EXPORT YAJL_Handler {
public:
  enum Callback_Type {
    CB_NONE = 0,
    CB_NULL = 1,
    CB_BOOLEAN = 2,
    CB_INTEGER = 3,
    CB_DOUBLE = 4,
    CB_NUMBER = 5,
    CB_STRING = 6,
    CB_START_MAP = 7,
    CB_MAP_KEY = 8,
    CB_END_MAP = 9,
    CB_START_ARRAY = 10,
    CB_END_ARRAY = 11
  };

  virtual ~YAJL_Handler() = default;

  virtual bool handle_null_i() { return true; }
  virtual bool handle_boolean_i(bool) { return true; }
  virtual bool handle_integer_i(long long) { return true; }
  virtual bool handle_double_i(double) { return true; }
  virtual bool handle_number_i(const char*, std::size_t) { return true; }
  virtual bool handle_string_i(const char*, std::size_t) { return true; }
  virtual bool handle_start_map_i() { return true; }
  virtual bool handle_map_key_i(const char*, std::size_t) { return true; }
  virtual bool handle_end_map_i() { return true; }
  virtual bool handle_start_array_i() { return true; }
  virtual bool handle_end_array_i() { return true; }

  /// The event that is being handled, or was handled last.
  Callback_Type callback_type() const { return callback_type_; }
  void callback_type(Callback_Type type) { callback_type_ = type; }

  /// Who takes what the parse handle says of keys and scalars: this handler, or the nested one.
  YAJL_Handler& innermost() {
    YAJL_Handler* handler = this;
    while (handler->handler_ != nullptr) handler = handler->handler_;
    return *handler;
  }

protected:
  /// Takes the events in place of this handler while it is set; not owned. Keys and scalars go
  /// there at once, and this handler does not see them; objects and arrays, as they open and close,
  /// come here, for this handler to pass on.
  YAJL_Handler* handler_ = nullptr;

private:
  Callback_Type callback_type_ = CB_NONE;
};

/// The callback table that routes each event to the YAJL_Handler given as yajl's context, recording
/// its type first. Numbers arrive as text. An exception of a handler is logged and stops the parse.
VEXA_EXPORT const yajl_callbacks* get_yajl_default_callbacks();
