#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
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

/// A directory that goes with what is in it.
class Temporary_Directory {
public:
  Temporary_Directory() : path_(::testing::TempDir() + "testXXXXXX") {
    if (::mkdtemp(&path_[0]) == nullptr) ADD_FAILURE() << "cannot make " << path_;
  }
  ~Temporary_Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Temporary_Directory(const Temporary_Directory&) = delete;
  Temporary_Directory& operator=(const Temporary_Directory&) = delete;

  /// The path of an entry.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file; its path.
  std::string write(const std::string& name, const std::string& text) const {
    const std::string path = *this / name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

private:
  std::string path_;
};
