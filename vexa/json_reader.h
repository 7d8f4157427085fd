#pragma once

#include <cstddef>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "vexa/json_parser.h"
#include "vexa/vexa_export.h"
#include "vexa/yajl_parse_handle.h"

/// Reads one JSON text (RFC 8259), whole or in pieces, into a value:
/// `JSON_Reader reader; reader.read(data, length) && reader.end()`. One thread at a time.
class VEXA_EXPORT JSON_Reader {
public:
  JSON_Reader();
  ~JSON_Reader();
  JSON_Reader(const JSON_Reader&) = delete;
  JSON_Reader& operator=(const JSON_Reader&) = delete;

  /// Whether it can read on: not without memory to make it, nor after a failure; then every read()
  /// fails.
  bool is_open() const { return handle_.is_open(); }

  /// Builds the value in `*target`, which is borrowed, instead of in value(). Before the first
  /// read().
  void result(json_spirit::Value* target) { parser_.result(target); }

  /// Feeds input. False when it is no JSON, deeper than vexa::max_value_depth, or there is no
  /// memory.
  bool read(const char* data, std::size_t length);
  /// The input has ended: whether value() holds a whole value.
  bool end();

  /// No input comes any more: the value is what has been read so far. Implied by a failure.
  void abandon() { parser_.abandon(); }

  json_spirit::Value& value() { return value_; }
  /// What was wrong, in one line; "" when nothing was.
  const std::string& error() const { return error_; }
  /// Whether that was memory, not the text.
  bool no_memory() const { return no_memory_; }

private:
  bool feed(const char* data, std::size_t length);

  json_spirit::Value value_;
  JSON_Parser parser_;
  YAJL_Parse_Handle handle_;
  std::string error_;
  bool no_memory_ = false;
};

/// Reads a whole text at once; false leaves `value` unspecified.
VEXA_EXPORT bool json_read(const char* text, std::size_t length, json_spirit::Value& value);
