#pragma once

#include <cerrno>
#include <limits>
#include <type_traits>

/// Strict decimal text to integer: one optional sign, then digits up to `end` or the first other
/// character. No blanks are skipped; what follows the digits is ignored. `begin` is null or
/// terminated unless `end` is given. `*stop` (when given) is where reading ended: behind the
/// digits, at the digit that no longer fitted, or `begin` when there was no number.
///
/// errno is 0 on success; EINVAL with result 0 for a null or empty text, no digit, or "-" with an
/// unsigned type; ERANGE with the type's largest value on overflow.
/// Kept: a negative number that overflows gives the largest value too, never the lowest.
template <typename Integer, typename Char_Ptr>
Integer natoi(Char_Ptr begin, std::enable_if_t<true, Char_Ptr> end = nullptr,
              std::enable_if_t<true, Char_Ptr>* stop = nullptr) {
  typedef std::make_unsigned_t<Integer> Magnitude;
  const auto has = [end](Char_Ptr p) { return p != end && (end != nullptr || *p != '\0'); };
  const auto finish = [stop](Char_Ptr p, int error, Integer result) {
    if (stop != nullptr) *stop = p;
    errno = error;
    return result;
  };
  if (begin == nullptr || !has(begin)) return finish(begin, EINVAL, 0);

  Char_Ptr p = begin;
  const bool negative = *p == '-';
  if (negative && std::is_unsigned<Integer>::value) return finish(begin, EINVAL, 0);
  if (negative || *p == '+') ++p;

  const Magnitude limit = static_cast<Magnitude>(
      static_cast<Magnitude>(std::numeric_limits<Integer>::max()) + (negative ? 1 : 0));
  const Char_Ptr digits = p;
  Magnitude sum = 0;
  for (; has(p) && *p >= '0' && *p <= '9'; ++p) {
    const unsigned digit = static_cast<unsigned>(*p - '0');
    if (sum > limit / 10 || (sum == limit / 10 && digit > limit % 10)) {
      return finish(p, ERANGE, std::numeric_limits<Integer>::max());
    }
    sum = static_cast<Magnitude>(sum * 10 + digit);
  }
  if (p == digits) return finish(begin, EINVAL, 0);
  return finish(p, 0, static_cast<Integer>(negative ? Magnitude(0) - sum : sum));
}
