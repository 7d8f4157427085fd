#pragma once

#include <yajl/yajl_gen.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "json_spirit/json_spirit_value.h"
#include "vexa/vexa_export.h"

/// Writes to a yajl generator and stops at the first status that is not zero: yajl's generator is
/// memory-unsafe when it is driven on after one. From then on every operation does nothing and
/// gives false. Several wrappers of one generator that nest on a thread share that state, so
/// whoever opened a map learns that something inside it failed.
///
/// Text that is not valid UTF-8 is written with U+FFFD in place of the bad bytes; reals as the
/// shortest text that reads back as the same real. One thread at a time.
class VEXA_EXPORT YAJL_Gen {
public:
  /// Wraps `gen`, which may be null (every operation fails); `own` frees it in the end.
  explicit YAJL_Gen(yajl_gen_t* gen, bool own = true);
  ~YAJL_Gen();
  YAJL_Gen(const YAJL_Gen&) = delete;
  YAJL_Gen& operator=(const YAJL_Gen&) = delete;

  yajl_gen_t* get() const { return gen_; }
  bool ok() const { return status_ == yajl_gen_status_ok; }
  yajl_gen_status status() const { return status_; }

  bool null() { return ok() && note(yajl_gen_null(gen_)); }
  bool boolean(bool value) { return ok() && note(yajl_gen_bool(gen_, value ? 1 : 0)); }
  bool integer(long long value);
  /// A number that is not finite fails with yajl_gen_invalid_number.
  bool real(double value);
  /// `text` as it stands: it must be a JSON number.
  bool number(const char* text, std::size_t length) {
    return ok() && note(yajl_gen_number(gen_, text, length));
  }
  /// A string, or the key of a map.
  bool string(const char* text, std::size_t length);
  bool string(std::string_view text) { return string(text.data(), text.size()); }
  /// A string that is known to be ASCII, such as a member's name in the source.
  bool literal(std::string_view text) {
    return ok() && note(yajl_gen_string(gen_, reinterpret_cast<const unsigned char*>(text.data()),
                                        text.size()));
  }
  bool map_open() { return ok() && note(yajl_gen_map_open(gen_)); }
  bool map_close() { return ok() && note(yajl_gen_map_close(gen_)); }
  /// map_close() for destructors.
  void close_map_at_end() noexcept;
  bool array_open() { return ok() && note(yajl_gen_array_open(gen_)); }
  bool array_close() { return ok() && note(yajl_gen_array_close(gen_)); }
  /// A whole value; one deeper than vexa::max_value_depth fails with yajl_max_depth_exceeded.
  bool value(const json_spirit::Value& value);

  YAJL_Gen& operator<<(std::string_view text) { return string(text), *this; }
  YAJL_Gen& operator<<(const std::string& text) { return string(text), *this; }
  YAJL_Gen& operator<<(const char* text) { return string(std::string_view(text)), *this; }
  YAJL_Gen& operator<<(const json_spirit::Value& v) { return value(v), *this; }

private:
  bool note(yajl_gen_status status);
  yajl_gen_status write_string(const char* text, std::size_t length);
  bool fail(yajl_gen_status status);
  template <typename Integer>
  bool decimal(Integer value);
  bool write(const json_spirit::Value& value, std::size_t depth);

  yajl_gen_t* gen_;
  yajl_gen_status status_;
  const bool own_;
  YAJL_Gen* const outer_;  // the wrapper that was made before this one on this thread
};

/// Opens a map and closes it when the scope ends, also by an exception. A printer that throws then
/// makes the generator's wrapper fail.
class VEXA_EXPORT YAJL_Map_Guard {
public:
  explicit YAJL_Map_Guard(YAJL_Gen& gen) : gen_(gen), open_(gen.map_open()) {}
  ~YAJL_Map_Guard() {
    if (open_) gen_.close_map_at_end();
  }
  YAJL_Map_Guard(const YAJL_Map_Guard&) = delete;
  YAJL_Map_Guard& operator=(const YAJL_Map_Guard&) = delete;

private:
  YAJL_Gen& gen_;
  const bool open_;
};

/// Writes any value as yajl events; the first status that is not zero, after which nothing more was
/// written and the generator must not be used.
VEXA_EXPORT yajl_gen_status yajl_gen_value(yajl_gen_t* gen, const json_spirit::Value& value);
