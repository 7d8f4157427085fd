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
  const unsigned char* const text = reinterpret_cast<const unsigned char*>(data);
  whole_ = npos;
  std::size_t i = 0;
  while (i < length) {
    if (in_string_) {
      if (escaped_) {
        escaped_ = false;
        ++i;
        continue;
      }
      i += vexa::json_plain_prefix(data + i, length - i);
      if (i == length) break;
      const unsigned char c = text[i++];
      if (c == '\\') {
        escaped_ = true;
      } else {
        // A raw control byte breaks the text: the parser is to see it now, not at the closing
        // quote.
        whole_ = i;
        if (c == '"') {
          in_string_ = false;
          if (depth_ == 0) return i;
        }
      }
      continue;
    }
    const Class kind = classes[text[i]];
    if (kind == WORD) {
      if (!in_word_) whole_ = i;
      in_word_ = true;
      ++i;
      continue;
    }
    if (in_word_) {
      in_word_ = false;
      whole_ = i;
      if (depth_ == 0) return i;
    }
    switch (kind) {
      case QUOTE:
        whole_ = i;
        in_string_ = true;
        ++i;
        break;
      case OPEN:
        if (depth_++ == 0) container_ = true;
        whole_ = ++i;
        break;
      case CLOSE:
        whole_ = ++i;
        if (depth_ <= 1) return i;
        --depth_;
        break;
      case SEPARATOR:
        whole_ = ++i;
        if (depth_ == 0) return i;
        break;
      default:
        whole_ = ++i;
        break;
    }
  }
  return npos;
}

}  // namespace transport
