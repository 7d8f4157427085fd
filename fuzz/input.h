#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

/// What a fuzzer calls with each input, which is borrowed. Gives 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process, and with it the fuzzer's run, when the property is broken.
#define FUZZ_CHECK(CONDITION)                                                      \
  do {                                                                             \
    if (!(CONDITION)) {                                                            \
      std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #CONDITION); \
      std::abort();                                                                \
    }                                                                              \
  } while (0)

/// An input is a line, and behind it the text: the letters of the line are the sizes of the pieces
/// that the text is cut into, 'a' for 1 to 'z' for 26, over and over. So seeds can be typed.
class Fuzz_Input {
public:
  /// Each piece is a block of its own, so that a byte too many is seen.
  typedef std::vector<std::vector<char>> Pieces;

  Fuzz_Input(const std::uint8_t* data, std::size_t size) {
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(all.find('\n'), all.size());
    line_ = all.substr(0, end);
    text_ = all.substr(std::min(end + 1, all.size()));
  }

  std::string_view line() const { return line_; }
  std::string_view text() const { return text_; }

  Pieces whole() const {
    Pieces pieces;
    if (!text_.empty()) pieces.emplace_back(text_.begin(), text_.end());
    return pieces;
  }

  std::size_t piece_size(std::size_t i) const {
    return line_.empty() ? 1 : 1 + (line_[i % line_.size()] - 1) % 32u;
  }

  Pieces cut() const {
    Pieces pieces;
    for (std::size_t at = 0, i = 0; at < text_.size(); ++i) {
      const std::string_view piece = text_.substr(at, piece_size(i));
      pieces.emplace_back(piece.begin(), piece.end());
      at += piece.size();
    }
    return pieces;
  }

private:
  std::string_view line_;
  std::string_view text_;
};
