#include "vexa/utf8.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

#define BAD "\xEF\xBF\xBD"

struct Case {
  std::string text;
  std::size_t good;      // bytes at the start that are well-formed
  std::string repaired;  // one mark for each longest beginning of a sequence that broke off
};

const Case cases[] = {
    {"", 0, ""},
    {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF", 10, "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF"},
    {"\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", 11,
     "\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    {"a\x80z", 1, "a" BAD "z"},                        // a continuation alone
    {"\xC0\xAF\xE0\x9F\xBF", 0, BAD BAD BAD BAD BAD},  // longer than need be
    {"\xF0\x8F\xBF\xBF", 0, BAD BAD BAD BAD},          // the same
    {"\xED\xA0\x80", 0, BAD BAD BAD},                  // a surrogate
    {"\xF4\x90\x80\x80\xF5", 0, BAD BAD BAD BAD BAD},  // above U+10FFFF
    {"\xF0\x9F\x98", 0, BAD},                          // breaks off at the end
    {"\xE2\x82x\xF0\x9F\x98y", 0, BAD "x" BAD "y"},    // breaks off before a plain byte
    {"\xC3\xA4\xE2\xE2\x82\xAC", 2, "\xC3\xA4" BAD "\xE2\x82\xAC"},  // and before a good sequence
};

TEST(Utf8Test, BadBytesAreFoundAndReplacedWhereverTheyLie) {
  for (const Case& c : cases) {
    // Plain bytes before and behind: the scan takes eight at a time.
    for (std::size_t before = 0; before < 17; ++before) {
      for (const std::size_t behind : {0, 1, 9}) {
        const std::string text = std::string(before, 'b') + c.text + std::string(behind, 'e');
        const std::vector<char> block(text.begin(), text.end());
        const std::size_t good = c.good == c.text.size() ? text.size() : before + c.good;
        EXPECT_EQ(good, vexa::utf8_valid_prefix(block.data(), block.size())) << c.repaired;
        EXPECT_EQ(std::string(before, 'b') + c.repaired + std::string(behind, 'e'),
                  vexa::utf8_repaired(block.data(), block.size()));
      }
    }
  }
}

}  // namespace
