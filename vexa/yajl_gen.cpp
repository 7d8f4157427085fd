#include "vexa/yajl_gen.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "vexa/json_limits.h"
#include "vexa/json_plain_text.h"
#include "vexa/utf8.h"

namespace {

thread_local YAJL_Gen* innermost = nullptr;

}  // namespace

YAJL_Gen::YAJL_Gen(yajl_gen_t* gen, bool own)
    : gen_(gen),
      status_(gen == nullptr ? yajl_gen_in_error_state : yajl_gen_status_ok),
      own_(own),
      outer_(innermost) {
  for (const YAJL_Gen* g = outer_; g != nullptr; g = g->outer_) {
    if (g->gen_ == gen_ && !g->ok()) status_ = g->status_;
  }
  innermost = this;
}

YAJL_Gen::~YAJL_Gen() {
  innermost = outer_;
  if (own_ && gen_ != nullptr) yajl_gen_free(gen_);
}

bool YAJL_Gen::note(yajl_gen_status status) { return status == yajl_gen_status_ok || fail(status); }

bool YAJL_Gen::fail(yajl_gen_status status) {
  for (YAJL_Gen* g = this; g != nullptr; g = g->outer_) {
    if (g->gen_ == gen_) g->status_ = status;
  }
  return false;
}

/// yajl's own way to write an integer goes through sprintf, at four times the cost.
template <typename Integer>
bool YAJL_Gen::decimal(Integer value) {
  char text[24];
  return number(text, std::to_chars(text, text + sizeof text, value).ptr - text);
}

bool YAJL_Gen::integer(long long value) { return decimal(value); }

bool YAJL_Gen::real(double value) {
  if (!ok()) return false;
  if (!std::isfinite(value)) return fail(yajl_gen_invalid_number);
  char text[32];
  char* end = std::to_chars(text, text + sizeof text - 2, value).ptr;
  // A real must read back as one.
  if (std::string_view(text, end - text).find_first_of(".e") == std::string_view::npos) {
    *end++ = '.';
    *end++ = '0';
  }
  return number(text, end - text);
}

bool YAJL_Gen::string(const char* text, std::size_t length) {
  if (!ok()) return false;
  if (vexa::utf8_valid_prefix(text, length) != length) {
    const std::string repaired = vexa::utf8_repaired(text, length);
    return note(write_string(repaired.data(), repaired.size()));
  }
  return note(write_string(text, length));
}

/// yajl looks at each byte of a string whether it must be escaped, but prints a number's text as it
/// stands. So does a string, quotes included, that needs no escape; keys alone must be strings to
/// yajl.
yajl_gen_status YAJL_Gen::write_string(const char* text, std::size_t length) {
  constexpr std::size_t shortest = 32;
  char quoted[4096];
  if (length >= shortest && length + 2 <= sizeof quoted &&
      vexa::json_plain_prefix(text, length) == length) {
    quoted[0] = quoted[length + 1] = '"';
    std::memcpy(quoted + 1, text, length);
    const yajl_gen_status status = yajl_gen_number(gen_, quoted, length + 2);
    if (status != yajl_gen_keys_must_be_strings) return status;
  }
  return yajl_gen_string(gen_, reinterpret_cast<const unsigned char*>(text), length);
}

void YAJL_Gen::close_map_at_end() noexcept {
  try {
    map_close();
  } catch (...) {
    fail(yajl_gen_in_error_state);
  }
}

bool YAJL_Gen::value(const json_spirit::Value& value) { return ok() && write(value, 0); }

/// `depth` containers of this value are open; the limit bounds the recursion.
bool YAJL_Gen::write(const json_spirit::Value& value, std::size_t depth) {
  switch (value.type()) {
    case json_spirit::obj_type:
      if (depth == vexa::max_value_depth) return fail(yajl_max_depth_exceeded);
      if (!map_open()) return false;
      for (const auto& member : value.get_obj()) {
        if (!string(member.first) || !write(member.second, depth + 1)) return false;
      }
      return map_close();
    case json_spirit::array_type:
      if (depth == vexa::max_value_depth) return fail(yajl_max_depth_exceeded);
      if (!array_open()) return false;
      for (const json_spirit::Value& element : value.get_array()) {
        if (!write(element, depth + 1)) return false;
      }
      return array_close();
    case json_spirit::str_type:
    case json_spirit::secure_str_type:
      return string(value.get_str());
    case json_spirit::bool_type:
      return boolean(value.get_bool());
    case json_spirit::int_type:
      return value.is_uint64() ? decimal(value.get_uint64()) : decimal(value.get_int64());
    case json_spirit::real_type:
      return real(value.get_real());
    case json_spirit::null_type:
      return null();
  }
  return false;
}

yajl_gen_status yajl_gen_value(yajl_gen_t* gen, const json_spirit::Value& value) {
  YAJL_Gen writer(gen, false);
  writer.value(value);
  return writer.status();
}
