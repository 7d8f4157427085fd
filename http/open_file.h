#pragma once

#include <unistd.h>

#include <cstdint>
#include <string>
#include <utility>

namespace http {

/// A part of an open file that is being sent; closes it.
class Open_File {
public:
  Open_File() = default;
  Open_File(int descriptor, std::uint64_t offset, std::uint64_t left)
      : descriptor_(descriptor), offset_(offset), left_(left) {}
  Open_File(Open_File&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)),
        offset_(other.offset_),
        left_(std::exchange(other.left_, 0)) {}
  Open_File& operator=(Open_File&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(offset_, other.offset_);
    std::swap(left_, other.left_);
    return *this;
  }
  ~Open_File() {
    if (descriptor_ != -1) ::close(descriptor_);
  }

  std::uint64_t left() const { return left_; }

  /// The next bytes, at most `most`; false when the file has not as many any more, or cannot be
  /// read. Throws std::bad_alloc.
  bool read(std::string& text, std::size_t most) {
    if (most > left_) most = static_cast<std::size_t>(left_);
    text.resize(most);
    const ssize_t got = ::pread(descriptor_, &text[0], most, static_cast<off_t>(offset_));
    if (got <= 0) return false;
    text.resize(static_cast<std::size_t>(got));
    offset_ += static_cast<std::uint64_t>(got);
    left_ -= static_cast<std::uint64_t>(got);
    return true;
  }

private:
  int descriptor_ = -1;
  std::uint64_t offset_ = 0;
  std::uint64_t left_ = 0;
};

}  // namespace http
