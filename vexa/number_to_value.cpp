#include "vexa/number_to_value.h"

#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <system_error>

namespace {

template <typename Number>
bool whole(const char* text, const char* end, Number& number) {
  const std::from_chars_result result = std::from_chars(text, end, number);
  return result.ec == std::errc() && result.ptr == end;
}

json_spirit::Value real_value(const char* text, const char* end) {
  double real;
  const std::from_chars_result result = std::from_chars(text, end, real);
  if (result.ptr != end || result.ec == std::errc::invalid_argument) return json_spirit::Value();
  if (result.ec == std::errc()) {
    // from_chars knows "inf" and "nan", JSON does not.
    return std::isfinite(real) ? json_spirit::Value(real) : json_spirit::Value();
  }
  // Out of range says nothing of the side: what is too small is zero or nearly so.
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  real = strtod_l(std::string(text, end).c_str(), nullptr, c_locale);
  return std::isfinite(real) ? json_spirit::Value(real) : json_spirit::Value();
}

json_spirit::Value any_number(const char* text, const char* end) {
  std::int64_t integer;
  if (whole(text, end, integer)) return json_spirit::Value(integer);
  std::uint64_t natural;
  if (whole(text, end, natural)) return json_spirit::Value(natural);
  return real_value(text, end);
}

/// Numbers that read_number() does not read itself.
[[gnu::noinline]] bool other_number(const char* text, const char* end, json_spirit::Value& value) {
  value = any_number(text, end);
  return !value.is_null();
}

/// Reads digits into `number`; gives where they end.
const char* read_digits(const char* text, const char* end, std::uint64_t& number) {
  for (; text != end; ++text) {
    const unsigned int digit = static_cast<unsigned char>(*text) - static_cast<unsigned int>('0');
    if (digit > 9) break;
    number = number * 10 + digit;
  }
  return text;
}

}  // namespace

/// Most numbers are read here: up to 18 digits, which never overflow, or a real of up to 15 digits
/// without an exponent, which a division of two exact doubles rounds correctly.
bool read_number(const char* text, std::size_t length, json_spirit::Value& value) {
  static const double powers[] = {1,   1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  const char* const end = text + length;
  const bool negative = length > 0 && *text == '-';
  const char* const first = text + negative;
  if (end - first > 18) return other_number(text, end, value);
  std::uint64_t number = 0;
  const char* const point = read_digits(first, end, number);
  if (point == end && point != first) {
    const std::int64_t integer = static_cast<std::int64_t>(number);
    value = json_spirit::Value(negative ? -integer : integer);
    return true;
  }
  if (point == first) {
    value = json_spirit::Value();
    return false;
  }
  if (*point != '.' || end - first > 16) return other_number(text, end, value);
  const char* const stop = read_digits(point + 1, end, number);
  if (stop != end || stop == point + 1) return other_number(text, end, value);
  const double real = static_cast<double>(number) / powers[stop - point - 1];
  value = json_spirit::Value(negative ? -real : real);
  return true;
}
