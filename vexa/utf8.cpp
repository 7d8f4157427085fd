#include "vexa/utf8.h"

#include <cstdint>
#include <cstring>

namespace vexa {
namespace {

bool continues(unsigned char byte) { return (byte & 0xC0) == 0x80; }

/// The length of the well-formed sequence at `p`; 0 when there is none. `subpart` then tells how
/// many bytes looked right before the first that did not: they are replaced together.
std::size_t sequence(const unsigned char* p, std::size_t left, std::size_t& subpart) {
  subpart = 1;
  const unsigned char lead = p[0];
  if (lead < 0x80) return 1;
  std::size_t size;
  unsigned char low = 0x80, high = 0xBF;  // the bounds of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    size = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    size = 3;
    if (lead == 0xE0) low = 0xA0;   // shorter forms exist
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    size = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
  } else {
    return 0;
  }
  if (left < 2 || p[1] < low || p[1] > high) return 0;
  for (subpart = 2; subpart < size; ++subpart) {
    if (subpart >= left || !continues(p[subpart])) return 0;
  }
  return size;
}

}  // namespace

std::size_t utf8_valid_prefix(const char* text, std::size_t length) {
  const unsigned char* const begin = reinterpret_cast<const unsigned char*>(text);
  std::size_t at = 0;
  while (at < length) {
    // Eight ASCII bytes at a time: nearly all text there is.
    std::uint64_t word;
    while (length - at >= sizeof word) {
      std::memcpy(&word, begin + at, sizeof word);
      if (word & 0x8080808080808080u) break;
      at += sizeof word;
    }
    while (at < length && begin[at] < 0x80) ++at;
    if (at == length) break;
    std::size_t subpart;
    const std::size_t size = sequence(begin + at, length - at, subpart);
    if (size == 0) break;
    at += size;
  }
  return at;
}

std::string utf8_repaired(const char* text, std::size_t length) {
  std::string repaired;
  repaired.reserve(length + 8);
  while (length > 0) {
    const std::size_t good = utf8_valid_prefix(text, length);
    repaired.append(text, good);
    text += good;
    length -= good;
    if (length == 0) break;
    std::size_t subpart;
    sequence(reinterpret_cast<const unsigned char*>(text), length, subpart);
    repaired.append("\xEF\xBF\xBD");
    text += subpart;
    length -= subpart;
  }
  return repaired;
}

}  // namespace vexa
