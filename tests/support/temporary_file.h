#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

/// A file of that text, removed with this object.
class Temporary_File {
public:
  explicit Temporary_File(const std::string& text) : path_(::testing::TempDir() + "testXXXXXX") {
    const int file = ::mkstemp(&path_[0]);
    if (file == -1 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
      ADD_FAILURE() << "cannot write " << path_;
    if (file != -1) ::close(file);
  }
  ~Temporary_File() { ::unlink(path_.c_str()); }
  Temporary_File(const Temporary_File&) = delete;
  Temporary_File& operator=(const Temporary_File&) = delete;

  const std::string& path() const { return path_; }
  /// The path as options take it.
  char* argument() { return &path_[0]; }

private:
  std::string path_;
};
