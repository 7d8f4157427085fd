#include "tools/json_rpc_call/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

Input::Input(const std::string& argument, const std::string& word)
    : kind_(argument == "-"               ? STANDARD_INPUT
            : argument.rfind('@', 0) == 0 ? FILE
                                          : TEXT),
      text_(kind_ == FILE ? argument.substr(1) : argument),
      name_(kind_ == TEXT   ? word
            : kind_ == FILE ? text_
                            : "standard input"),
      descriptor_(kind_ == STANDARD_INPUT ? STDIN_FILENO : -1) {}

Input::~Input() {
  if (kind_ == FILE && descriptor_ != -1) ::close(descriptor_);
}

bool Input::open(std::string& error) {
  if (kind_ == FILE) descriptor_ = ::open(text_.c_str(), O_RDONLY | O_CLOEXEC);
  if (kind_ == FILE && descriptor_ == -1) {
    error = "cannot read " + name_ + ": " + std::strerror(errno);
    return false;
  }
  if (!is_text()) begin_ = ::lseek(descriptor_, 0, SEEK_CUR);
  return true;
}

void Input::rewind() {
  at_ = 0;
  if (!is_text()) ::lseek(descriptor_, begin_, SEEK_SET);
}

ssize_t Input::read(char* data, std::size_t size) {
  if (is_text()) {
    const std::size_t length = std::min(size, text_.size() - at_);
    std::memcpy(data, text_.data() + at_, length);
    at_ += length;
    return static_cast<ssize_t>(length);
  }
  ssize_t length;
  do {
    length = ::read(descriptor_, data, size);
  } while (length == -1 && errno == EINTR);
  return length;
}
