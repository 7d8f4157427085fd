#pragma once

#include <cstddef>
#include <string>

namespace transport {

/// Reads the header in front of a message: lines `Name: value` up to an empty one, of which only
/// Content-Length matters, as language servers use them.
class Header_Reader {
public:
  enum Outcome { MORE, COMPLETE, BAD };

  void begin();
  /// Takes bytes up to the end of the header; `used` is how many.
  Outcome feed(const char* data, std::size_t length, std::size_t& used);
  /// The length of the body, once complete.
  std::size_t content_length() const { return content_length_; }

private:
  Outcome line();

  std::string line_;
  std::size_t read_ = 0;
  std::size_t content_length_ = 0;
  bool have_length_ = false;
};

}  // namespace transport
