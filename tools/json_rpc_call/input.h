#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

/// Bytes that the command line names: a text, a file as "@FILE", or standard input as "-". One
/// thread.
class Input {
public:
  /// `word` is what the command line's help calls it.
  Input(const std::string& argument, const std::string& word);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  /// Opens the file, if it is one; false with a reason in `error`.
  bool open(std::string& error);

  bool is_text() const { return kind_ == TEXT; }
  /// Whether rewind() can go back to where it began; not so for a pipe or a terminal.
  bool repeatable() const { return is_text() || begin_ != -1; }
  void rewind();

  /// Reads up to `size` bytes; 0 at the end, -1 with errno.
  ssize_t read(char* data, std::size_t size);

  /// What it is called in messages.
  const std::string& name() const { return name_; }

private:
  enum Kind { TEXT, FILE, STANDARD_INPUT };

  const Kind kind_;
  std::string text_;  // of TEXT: the bytes; of FILE: its path
  std::string name_;
  std::size_t at_ = 0;   // of TEXT: what comes next
  int descriptor_ = -1;  // else; owned unless it is standard input
  off_t begin_ = -1;     // else; where it began, -1 where nothing can be read twice
};
