#pragma once

#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// yajl alone, as the floor of what is built on it.
namespace bare_yajl {

/// A parser with callbacks that do nothing.
class Parser {
public:
  Parser();
  ~Parser();
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  void feed(std::string_view text);

private:
  const yajl_handle handle_;
};

/// Parses `text` with callbacks that do nothing and a new handle, in pieces of `piece` bytes; 0:
/// whole. The number of bytes.
std::size_t parse(std::string_view text, std::size_t piece);

/// What a text is made of, for generate().
struct Event {
  enum Kind {
    NULL_VALUE,
    BOOLEAN,
    INTEGER,
    REAL,
    STRING,
    MAP_OPEN,
    MAP_CLOSE,
    ARRAY_OPEN,
    ARRAY_CLOSE
  };
  Kind kind;
  std::int64_t integer;  ///< of a boolean as well
  double real;
  std::string string;  ///< of a key as well
};
typedef std::vector<Event> Events;

Events events_of(const std::string& text);

/// A new generator that appends its text to `sink`; yajl_gen_free() ends it.
yajl_gen generator_to(std::string& sink);
yajl_gen_status put(yajl_gen gen, std::string_view string);

/// Writes the events with a new generator, which appends its text to `sink`. The sink's length.
std::size_t generate(const Events& events, std::string& sink);

}  // namespace bare_yajl
