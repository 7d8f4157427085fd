#pragma once

#include <emmintrin.h>

#include <cstddef>

namespace vexa {

/// How many bytes at the beginning stand in a JSON string as they are: up to the first quote,
/// backslash or control character. Sixteen at a time, for most bytes of large messages are such.
inline std::size_t json_plain_prefix(const char* text, std::size_t length) {
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  const __m128i last_control = _mm_set1_epi8(0x1f);
  std::size_t i = 0;
  for (; i + 16 <= length; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    const __m128i controls = _mm_cmpeq_epi8(_mm_min_epu8(bytes, last_control), bytes);
    const __m128i found = _mm_or_si128(
        controls, _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)));
    const int mask = _mm_movemask_epi8(found);
    if (mask != 0) return i + __builtin_ctz(mask);
  }
  while (i < length && text[i] != '"' && text[i] != '\\' &&
         static_cast<unsigned char>(text[i]) >= 0x20) {
    ++i;
  }
  return i;
}

}  // namespace vexa
