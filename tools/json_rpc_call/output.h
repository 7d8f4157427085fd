#pragma once

#include <string>
#include <string_view>

#include "json_spirit/json_spirit_value.h"

// What the process writes. Any thread; lines of several threads do not mix.

/// How a value is to look.
struct Output_Style {
  bool pretty = false;  ///< indented, over several lines
  bool raw = false;     ///< a text without quotes and escapes
};

/// Writes `text` and a line feed to standard output. Not buffered. False with errno.
bool print_line(std::string_view text);

/// The same of a value. EXIT_ANSWERED; or EXIT_FAILED after a complaint when it cannot be written.
int print_value(const json_spirit::Value& value, const Output_Style& style);

/// Writes the error object of an answer to standard error; EXIT_ERROR.
int print_error(const json_spirit::Value& error, const Output_Style& style);

/// Writes one line to standard error, with the program's name in front; EXIT_FAILED.
int complain(const std::string& text);

/// Writes `text` as it stands to standard error.
void print_diagnostics(std::string_view text);

/// Ends the process at once, but between two lines: threads and connections are left to the system.
[[noreturn]] void leave(int status);
