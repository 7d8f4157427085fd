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

/// Reads digits into `number`, at most as many as never overflow; gives where they end.
const char* read_digits(const char* text, const char* end, std::uint64_t& number, int& left) {
  for (; text != end && *text >= '0' && *text <= '9' && left > 0; ++text, --left) {
    number = number * 10 + static_cast<unsigned int>(*text - '0');
  }
  return text;
}

/// Most numbers there are: up to 18 digits, or a real of up to 15 digits without an exponent, which
/// a division of two exact doubles rounds correctly. Null for all others.
json_spirit::Value simple_number(const char* text, const char* end) {
  static const double powers[] = {1,   1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  const bool negative = text != end && *text == '-';
  if (negative) ++text;
  std::uint64_t number = 0;
  int left = 18;
  const char* const point = read_digits(text, end, number, left);
  if (point == text) return json_spirit::Value();
  if (point == end) {
    const std::int64_t integer = static_cast<std::int64_t>(number);
    return json_spirit::Value(negative ? -integer : integer);
  }
  left -= 3;
  if (*point != '.' || left <= 0) return json_spirit::Value();
  const char* const stop = read_digits(point + 1, end, number, left);
  if (stop != end || stop == point + 1) return json_spirit::Value();
  const double real = static_cast<double>(number) / powers[stop - point - 1];
  return json_spirit::Value(negative ? -real : real);
}

}  // namespace

json_spirit::Value number_to_value(const char* text, std::size_t length) {
  const char* const end = text + length;
  json_spirit::Value simple = simple_number(text, end);
  if (!simple.is_null()) return simple;
  std::int64_t integer;
  if (whole(text, end, integer)) return json_spirit::Value(integer);
  std::uint64_t natural;
  if (whole(text, end, natural)) return json_spirit::Value(natural);
  return real_value(text, end);
}
