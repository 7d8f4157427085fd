#include "transport/envelope_scanner.h"

#include "vexa/json_reader.h"

namespace transport {

namespace {

// Longer names are none of ours, and longer ids nobody's that we read: they are cut, and match
// nothing.
constexpr std::size_t max_token = 64u << 10;

}  // namespace

void Envelope_Scanner::scan(const char* text, std::size_t length) {
  for (std::size_t i = 0; i < length && !known(); ++i) step(text[i]);
}

/// A member's name, or its value, is complete.
void Envelope_Scanner::end_token() {
  if (!in_value_) {
    key_.swap(token_);
    if (key_ == "\"method\"" || key_ == "\"params\"") kind_ = NOT_A_RESPONSE;
    if (key_ == "\"result\"" || key_ == "\"error\"") kind_ = RESPONSE;
  } else if (key_ == "\"id\"") {
    have_id_ = json_read(token_.data(), token_.size(), id_);
  }
  token_.clear();
}

void Envelope_Scanner::step(char c) {
  const bool keep = depth_ == 1 && (!in_value_ || key_ == "\"id\"");
  if (in_string_) {
    if (keep && token_.size() < max_token) token_ += c;
    if (escaped_) {
      escaped_ = false;
    } else if (c == '\\') {
      escaped_ = true;
    } else if (c == '"') {
      in_string_ = false;
    }
    return;
  }
  switch (c) {
    case '{':
    case '[':
      ++depth_;
      return;
    case '}':
    case ']':
      if (depth_ == 1) end_token();
      if (depth_ > 0) --depth_;
      return;
    case ':':
      if (depth_ == 1) {
        end_token();
        in_value_ = true;
      }
      return;
    case ',':
      if (depth_ == 1) {
        end_token();
        in_value_ = false;
      }
      return;
    case ' ':
    case '\t':
    case '\n':
    case '\r':
      return;
    case '"':
      in_string_ = true;
      break;
    default:
      break;
  }
  if (keep && token_.size() < max_token) token_ += c;
}

}  // namespace transport
