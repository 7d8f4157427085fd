// natoi() reads what strtoull() reads of the same digits, for integers of every width, and tells
// where it stopped; what http_encode_string_i() writes has only characters that its flags let
// through, and decodes to what it was.
#include <cctype>
#include <cstring>
#include <iterator>

#include "fuzz/input.h"
#include "vexa/http_url_encode.h"
#include "vexa/natoi.h"

namespace {

struct Number {
  unsigned long long value;  // as the type's bits
  int error;
  const char* stop;
};

/// What natoi() documents, from strtoull() of one digit more each time.
template <typename Integer>
Number reference(const std::string& text) {
  const bool negative = text[0] == '-';
  const char* const digits = text.c_str() + (negative || text[0] == '+' ? 1 : 0);
  const std::size_t count = std::strspn(digits, "0123456789");
  if (count == 0 || (negative && std::is_unsigned_v<Integer>)) return {0, EINVAL, text.c_str()};
  const unsigned long long largest = std::numeric_limits<Integer>::max();
  unsigned long long value = 0;
  for (std::size_t n = 1; n <= count; ++n) {
    errno = 0;
    value = std::strtoull(std::string(digits, n).c_str(), nullptr, 10);
    if (errno == ERANGE || value > largest + (negative ? 1 : 0)) {
      return {largest, ERANGE, digits + n - 1};
    }
  }
  return {negative ? 0 - value : value, 0, digits + count};
}

template <typename Integer>
void check_natoi(const std::string& text) {
  const Number expected = reference<Integer>(text);
  const auto agrees = [&](const char* end) {
    const char* stop = nullptr;
    const Integer value = natoi<Integer, const char*>(text.c_str(), end, &stop);
    const int error = errno;
    return value == static_cast<Integer>(expected.value) && error == expected.error &&
           stop == expected.stop;
  };
  FUZZ_CHECK(agrees(nullptr));
  FUZZ_CHECK(agrees(text.c_str() + text.size()));
}

bool is_let_through(char c, unsigned long flags) {
  static const struct {
    char c;
    unsigned long flag;
  } kept[] = {{':', HUT_FLAG_KEEP_COLON},       {'(', HUT_FLAG_KEEP_LEFT_PAREN},
              {')', HUT_FLAG_KEEP_RIGHT_PAREN}, {'\'', HUT_FLAG_KEEP_SINGLE_QUOTE},
              {'*', HUT_FLAG_KEEP_ASTERISK},    {'!', HUT_FLAG_KEEP_EXCLAMATION},
              {'#', HUT_FLAG_KEEP_POUND},       {'$', HUT_FLAG_KEEP_DOLLAR},
              {'&', HUT_FLAG_KEEP_AMPERSAND},   {'+', HUT_FLAG_KEEP_PLUS | HUT_FLAG_SPACE},
              {',', HUT_FLAG_KEEP_COMMA},       {';', HUT_FLAG_KEEP_SEMICOLON},
              {'=', HUT_FLAG_KEEP_EQUAL},       {'?', HUT_FLAG_KEEP_QUESTION},
              {'@', HUT_FLAG_KEEP_AT}};
  if (c == '/') return (flags & HUT_FLAG_SLASH) == 0;
  for (const auto& k : kept) {
    if (k.c == c) return (flags & k.flag) != 0;
  }
  return std::isalnum(static_cast<unsigned char>(c)) || (c != '\0' && std::strchr("-_.~", c));
}

void check_encoding(const std::string& text, unsigned long flags) {
  std::string encoded;
  const bool written = http_encode_string_i(text.c_str(), flags, std::back_inserter(encoded));
  FUZZ_CHECK(written == !text.empty());
  const char* const digits = flags & HUT_FLAG_UPPERCASE ? "0123456789ABCDEF" : "0123456789abcdef";
  std::string decoded;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] != '%') {
      FUZZ_CHECK(is_let_through(encoded[i], flags));
      decoded += encoded[i];
      continue;
    }
    FUZZ_CHECK(i + 2 < encoded.size());
    const char* const high = std::strchr(digits, encoded[i + 1]);
    const char* const low = std::strchr(digits, encoded[i + 2]);
    FUZZ_CHECK(high != nullptr && low != nullptr);
    decoded += static_cast<char>(16 * (high - digits) + (low - digits));
    i += 2;
    FUZZ_CHECK(!is_let_through(decoded.back(), flags & ~HUT_FLAG_SPACE));
  }
  // Where blanks become '+', a '+' that is kept is one of them.
  std::string expected = text;
  if (flags & HUT_FLAG_SPACE) std::replace(expected.begin(), expected.end(), ' ', '+');
  FUZZ_CHECK(decoded == expected);
}

}  // namespace

// The line in front of the text is the flags, in decimal.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fuzz_Input input(data, size);
  const std::string text(
      input.text().substr(0, std::min(input.text().find('\0'), std::size_t{80})));
  if (!text.empty()) {
    check_natoi<std::int8_t>(text);
    check_natoi<std::uint8_t>(text);
    check_natoi<std::int16_t>(text);
    check_natoi<std::uint16_t>(text);
    check_natoi<std::int32_t>(text);
    check_natoi<std::uint32_t>(text);
    check_natoi<std::int64_t>(text);
    check_natoi<std::uint64_t>(text);
  }
  check_encoding(text, std::strtoul(std::string(input.line()).c_str(), nullptr, 10));
  return 0;
}
