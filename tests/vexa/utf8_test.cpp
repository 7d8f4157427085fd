#include "vexa/utf8.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::string_literals;

#define BAD "\xEF\xBF\xBD"

struct Case {
  std::string text;
  std::size_t good;      // bytes at the start that are well-formed
  std::string repaired;  // one mark for each longest beginning of a sequence that broke off
};

const Case cases[] = {
    {"", 0, ""},
    {"plain \x7F\0text"s, 12, "plain \x7F\0text"s},
    {"\xC2\x80\xDF\xBF", 4, "\xC2\x80\xDF\xBF"},
    {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", 12,
     "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
    {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", 8, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    {"a\x80z", 1, "a" BAD "z"},                                  // a continuation alone
    {"\xC0\xAF", 0, BAD BAD},                                    // "/" too long
    {"\xE0\x9F\xBF", 0, BAD BAD BAD},                            // too long
    {"\xF0\x8F\xBF\xBF", 0, BAD BAD BAD BAD},                    // too long
    {"\xED\xA0\x80", 0, BAD BAD BAD},                            // a surrogate
    {"\xF4\x90\x80\x80", 0, BAD BAD BAD BAD},                    // above U+10FFFF
    {"\xF5\x80\xFF", 0, BAD BAD BAD},                            // bytes that never occur
    {"\xE2\x82", 0, BAD},                                        // breaks off at the end
    {"\xF0\x9F\x98", 0, BAD},                                    // breaks off at the end
    {"\xE2\x82x\xF0\x9F\x98y", 0, BAD "x" BAD "y"},              // breaks off before a good byte
    {"\xE2\xE2\x82\xAC", 0, BAD "\xE2\x82\xAC"},                 // breaks off before a good sequence
    {"\xC3\xA4\xFF\xC3\xA4", 2, "\xC3\xA4" BAD "\xC3\xA4"},      // good on both sides
};

TEST(Utf8Test, BadBytesAreFoundAndReplacedWhereverTheyLie) {
  for (const Case& c : cases) {
    // Plain bytes before and behind: the scan takes eight at a time.
    for (std::size_t before = 0; before < 17; ++before) {
      for (std::size_t behind : {0, 1, 9}) {
        const std::string text = std::string(before, 'b') + c.text + std::string(behind, 'e');
        const std::vector<char> block(text.begin(), text.end());
        const bool clean = c.good == c.text.size();
        EXPECT_EQ(clean ? text.size() : before + c.good,
                  vexa::utf8_valid_prefix(block.data(), block.size()))
            << before << ' ' << c.repaired;
        EXPECT_EQ(std::string(before, 'b') + c.repaired + std::string(behind, 'e'),
                  vexa::utf8_repaired(block.data(), block.size()));
      }
    }
  }
}

}  // namespace
