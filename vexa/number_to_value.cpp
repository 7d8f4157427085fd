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
  if (result.ec == std::errc()) return json_spirit::Value(real);
  // Out of range says nothing of the side: what is too small is zero or nearly so.
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  real = strtod_l(std::string(text, end).c_str(), nullptr, c_locale);
  return std::isfinite(real) ? json_spirit::Value(real) : json_spirit::Value();
}

}  // namespace

json_spirit::Value number_to_value(const char* text, std::size_t length) {
  const char* const end = text + length;
  std::int64_t integer;
  if (whole(text, end, integer)) return json_spirit::Value(integer);
  std::uint64_t natural;
  if (whole(text, end, natural)) return json_spirit::Value(natural);
  return real_value(text, end);
}
