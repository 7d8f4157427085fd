#pragma once

#include <cstddef>

namespace transport {

/// Finds where a JSON text ends, from quotes, escapes and depth alone, in front of the parser and
/// in pieces of any size: linear in the bytes. Also finds where the last whole token ends, so that
/// the parser is never given half of one (it would scan it again from its start each time).
///
/// Text that is no JSON has an end too: a closing brace that nothing opened, or the first byte that
/// cannot belong to a lone number or word.
class Message_Scanner {
public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  /// The next byte begins a text: one that is not white space.
  void reset();

  /// Reads on: the offset just behind the end of the text, or npos when it goes on.
  std::size_t scan(const char* data, std::size_t length);

  /// How many bytes of the last piece belong to whole tokens; npos when the token before it goes on
  /// through all of it.
  std::size_t whole() const { return whole_; }

  /// Whether the text is an object or an array, whose end its braces tell.
  bool container() const { return container_; }

private:
  std::size_t skip_string(const char* data, std::size_t at, std::size_t length);
  std::size_t skip_word(const char* data, std::size_t at, std::size_t length);

  std::size_t depth_ = 0;
  std::size_t whole_ = 0;
  bool in_string_ = false;
  bool escaped_ = false;
  bool in_word_ = false;  // a number, a literal, or what pretends to be one
  bool container_ = false;
};

}  // namespace transport
