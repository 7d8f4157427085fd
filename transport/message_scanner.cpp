#include "transport/message_scanner.h"

#include <array>

#include "vexa/json_plain_text.h"

namespace transport {

namespace {

enum Class : unsigned char { WORD, SPACE, OPEN, CLOSE, SEPARATOR, QUOTE };

constexpr std::array<Class, 256> make_classes() {
  std::array<Class, 256> classes{};
  for (unsigned char c : {' ', '\t', '\n', '\r'}) classes[c] = SPACE;
  for (unsigned char c : {'{', '['}) classes[c] = OPEN;
  for (unsigned char c : {'}', ']'}) classes[c] = CLOSE;
  for (unsigned char c : {',', ':'}) classes[c] = SEPARATOR;
  classes['"'] = QUOTE;
  return classes;
}
constexpr std::array<Class, 256> classes = make_classes();

}  // namespace

void Message_Scanner::reset() { *this = Message_Scanner(); }

std::size_t Message_Scanner::scan(const char* data, std::size_t length) {
  whole_ = npos;
  std::size_t at = 0;
  if (in_string_) {
    at = skip_string(data, 0, length);
    if (in_string_) return npos;
    if (depth_ == 0) return at;
  }
  if (in_word_) {
    at = skip_word(data, 0, length);
    if (in_word_) return npos;
    if (depth_ == 0) return at;
  }
  std::size_t depth = depth_;
  while (at < length) {
    switch (classes[static_cast<unsigned char>(data[at])]) {
      case QUOTE:
        whole_ = at;
        at = skip_string(data, at + 1, length);
        if (!in_string_ && depth == 0) return at;
        continue;
      case WORD:
        whole_ = at;
        at = skip_word(data, at + 1, length);
        if (!in_word_ && depth == 0) return at;
        continue;
      case OPEN:
        if (depth++ == 0) container_ = true;
        break;
      case CLOSE:
        if (depth <= 1) return whole_ = at + 1;
        --depth;
        break;
      case SEPARATOR:
        if (depth == 0) return whole_ = at + 1;
        break;
      case SPACE:
        break;
    }
    whole_ = ++at;
  }
  depth_ = depth;
  return npos;
}

/// Just behind the string that goes on at `at`, or the end of the piece when it goes on there.
std::size_t Message_Scanner::skip_string(const char* data, std::size_t at, std::size_t length) {
  in_string_ = true;
  while (at < length) {
    if (escaped_) {
      escaped_ = false;
      ++at;
      continue;
    }
    at += vexa::json_plain_prefix(data + at, length - at);
    if (at == length) break;
    const char c = data[at++];
    escaped_ = c == '\\';
    if (escaped_) continue;
    // A raw control byte breaks the text: the parser is to see it now, not at the closing quote.
    whole_ = at;
    if (c != '"') continue;
    in_string_ = false;
    break;
  }
  return at;
}

/// Just behind the word that goes on at `at`, or the end of the piece.
std::size_t Message_Scanner::skip_word(const char* data, std::size_t at, std::size_t length) {
  while (at < length && classes[static_cast<unsigned char>(data[at])] == WORD) ++at;
  in_word_ = at == length;
  if (!in_word_) whole_ = at;
  return at;
}

}  // namespace transport
