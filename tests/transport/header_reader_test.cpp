#include "transport/header_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace transport;

namespace {

TEST(HeaderReaderTest, ReadsTheLengthOrRefusesWhateverThePieces) {
  const struct {
    std::string text;
    Header_Reader::Outcome outcome;
    std::size_t length;
    std::size_t used;  // 0: all
  } cases[] = {
      {"Content-Length: 12\r\n\r\n{}", Header_Reader::COMPLETE, 12, 22},
      {"content-LENGTH:\t7 \n\n", Header_Reader::COMPLETE, 7, 0},
      {"Content-Type: application/x; charset=utf-8\r\nContent-Length:0\r\n\r\n",
       Header_Reader::COMPLETE, 0, 0},
      {"Content-Length: 18446744073709551615\n\n", Header_Reader::COMPLETE, SIZE_MAX, 0},
      {"Content-Length: 12\r\n", Header_Reader::MORE, 0, 0},
      {"\r\n", Header_Reader::BAD, 0, 0},
      {"Content-Type: x\r\n\r\n", Header_Reader::BAD, 0, 0},
      {"Content-Length\r\n", Header_Reader::BAD, 0, 0},
      {"Content-Length:\r\n", Header_Reader::BAD, 0, 0},
      {"Content-Length: -1\r\n", Header_Reader::BAD, 0, 0},
      {"Content-Length: 1x\r\n", Header_Reader::BAD, 0, 0},
      {"Content-Length: 18446744073709551616\n", Header_Reader::BAD, 0, 0},
      {"Content-Length: 1\r\nContent-Length: 1\r\n", Header_Reader::BAD, 0, 0},
      {"X: " + std::string(4094, 'x'), Header_Reader::BAD, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 60));
    for (std::size_t size : {std::size_t{1}, std::size_t{2}, std::size_t{7}, c.text.size()}) {
      Header_Reader reader;
      reader.begin();
      Header_Reader::Outcome outcome = Header_Reader::MORE;
      std::size_t at = 0;
      while (at < c.text.size() && outcome == Header_Reader::MORE) {
        std::size_t used;
        outcome = reader.feed(c.text.data() + at, std::min(size, c.text.size() - at), used);
        at += used;
      }
      EXPECT_EQ(c.outcome, outcome);
      EXPECT_EQ(c.used == 0 ? c.text.size() : c.used, at);
      if (outcome == Header_Reader::COMPLETE) {
        EXPECT_EQ(c.length, reader.content_length());
      }
    }
  }
}

}  // namespace
