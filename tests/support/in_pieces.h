#pragma once

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

/// A text in the pieces that it is fed in. Each is a block of its own, so that a byte too many is
/// seen.
typedef std::vector<std::vector<char>> Pieces;

inline Pieces cut_text(std::string_view text, std::size_t first, std::size_t rest) {
  Pieces pieces;
  std::size_t size = first;
  for (std::size_t at = 0; at < text.size(); at += size, size = rest) {
    if (at > 0) size = rest;
    const std::string_view piece = text.substr(at, size);
    pieces.emplace_back(piece.begin(), piece.end());
  }
  return pieces;
}

/// What feed(pieces) gives for the whole text, having seen that it gives the same for single bytes
/// and for the text cut in two anywhere.
template <typename Feed>
auto however_cut(std::string_view text, Feed feed) {
  const auto whole = feed(cut_text(text, text.size(), 1));
  EXPECT_EQ(whole, feed(cut_text(text, 1, 1))) << "byte by byte: " << text;
  for (std::size_t at = 1; at < text.size(); ++at) {
    EXPECT_EQ(whole, feed(cut_text(text, at, text.size()))) << "cut at " << at << ": " << text;
  }
  return whole;
}
