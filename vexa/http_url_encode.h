#pragma once

/// Which characters http_encode_string_i() leaves as they are, and how it writes the others. A bit
/// set.
enum HTTP_URL_Flag : unsigned long {
  HUT_FLAG_SLASH = 1,      ///< encode '/', which otherwise stays
  HUT_FLAG_SPACE = 2,      ///< a blank becomes '+'
  HUT_FLAG_UPPERCASE = 4,  ///< "%2F" instead of "%2f"
  HUT_FLAG_KEEP_COLON = 8,
  HUT_FLAG_KEEP_LEFT_PAREN = 16,
  HUT_FLAG_KEEP_RIGHT_PAREN = 32,
  HUT_FLAG_KEEP_SINGLE_QUOTE = 64,
  HUT_FLAG_KEEP_ASTERISK = 128,
  HUT_FLAG_KEEP_EXCLAMATION = 512,
  HUT_FLAG_KEEP_POUND = 1024,
  HUT_FLAG_KEEP_DOLLAR = 2048,
  HUT_FLAG_KEEP_AMPERSAND = 4096,
  HUT_FLAG_KEEP_PLUS = 8192,
  HUT_FLAG_KEEP_COMMA = 16384,
  HUT_FLAG_KEEP_SEMICOLON = 32768,
  HUT_FLAG_KEEP_EQUAL = 65536,
  HUT_FLAG_KEEP_QUESTION = 131072,
  HUT_FLAG_KEEP_AT = 262144,

  /// As JavaScript's encodeURIComponent().
  HUT_FLAG_JS_ENCODE_URI_COMPONENT =
      HUT_FLAG_SLASH | HUT_FLAG_UPPERCASE | HUT_FLAG_KEEP_LEFT_PAREN | HUT_FLAG_KEEP_RIGHT_PAREN |
      HUT_FLAG_KEEP_SINGLE_QUOTE | HUT_FLAG_KEEP_ASTERISK | HUT_FLAG_KEEP_EXCLAMATION,
  /// As JavaScript's encodeURI().
  HUT_FLAG_JS_ENCODE_URI = 0x7FEFC
};

namespace vexa {

/// The flag that keeps a character; 0 when none does.
constexpr unsigned long http_keep_flag(char c) {
  switch (c) {
    case ':':
      return HUT_FLAG_KEEP_COLON;
    case '(':
      return HUT_FLAG_KEEP_LEFT_PAREN;
    case ')':
      return HUT_FLAG_KEEP_RIGHT_PAREN;
    case '\'':
      return HUT_FLAG_KEEP_SINGLE_QUOTE;
    case '*':
      return HUT_FLAG_KEEP_ASTERISK;
    case '!':
      return HUT_FLAG_KEEP_EXCLAMATION;
    case '#':
      return HUT_FLAG_KEEP_POUND;
    case '$':
      return HUT_FLAG_KEEP_DOLLAR;
    case '&':
      return HUT_FLAG_KEEP_AMPERSAND;
    case '+':
      return HUT_FLAG_KEEP_PLUS;
    case ',':
      return HUT_FLAG_KEEP_COMMA;
    case ';':
      return HUT_FLAG_KEEP_SEMICOLON;
    case '=':
      return HUT_FLAG_KEEP_EQUAL;
    case '?':
      return HUT_FLAG_KEEP_QUESTION;
    case '@':
      return HUT_FLAG_KEEP_AT;
    default:
      return 0;
  }
}

constexpr bool http_stays(char c, unsigned long flags) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  if (c == '-' || c == '_' || c == '.' || c == '~') return true;
  if (c == '/') return (flags & HUT_FLAG_SLASH) == 0;
  return (http_keep_flag(c) & flags) != 0;
}

/// Encodes a text that is not null; `out` is where it ends.
template <typename Iterator>
void http_encode(const char* str, unsigned long flags, Iterator& out) {
  const char* const digits =
      (flags & HUT_FLAG_UPPERCASE) != 0 ? "0123456789ABCDEF" : "0123456789abcdef";
  for (; *str != '\0'; ++str) {
    const unsigned char byte = static_cast<unsigned char>(*str);
    if (http_stays(*str, flags)) {
      *out++ = *str;
    } else if (*str == ' ' && (flags & HUT_FLAG_SPACE) != 0) {
      *out++ = '+';
    } else {
      *out++ = '%';
      *out++ = digits[byte >> 4];
      *out++ = digits[byte & 15];
    }
  }
}

}  // namespace vexa

/// Percent-encodes a text, byte by byte (RFC 3986 section 2.1): letters, digits and "-_.~" stay,
/// and what `flags` say. False, and nothing is written, for a null or empty text.
template <typename Iterator>
bool http_encode_string_i(const char* str, unsigned long flags, Iterator out) {
  if (str == nullptr || *str == '\0') return false;
  vexa::http_encode(str, flags, out);
  return true;
}
